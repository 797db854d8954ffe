/* snapshot SERIAL...: on this machine, elevated. */
#include <stdio.h>
#include <varnel-c.h>

#include "take_snapshot.h"

int main(int argc, char** argv) {
  int hresult = 0;
  const int com = varnel_initialize_com(&hresult);
  int code;
  if (com != VARNEL_DONE) {
    fprintf(stderr, "COM: %s (0x%08x)\n", varnel_code_text(com), (unsigned int)hresult);
    return 1;
  }
  code = take_snapshot((const char* const*)argv + 1, (size_t)argc - 1, stdout);
  varnel_uninitialize_com();
  return code == VARNEL_DONE ? 0 : 1;
}
