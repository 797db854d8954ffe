// What the interface says of itself.
#include <algorithm>
#include <iterator>

#include "c/varnel-c.h"

namespace {

struct CodeText {
  int code;
  const char* text;
};

constexpr CodeText kTexts[] = {
    {VARNEL_DONE, "done"},
    {VARNEL_BAD_ARGUMENT, "a null pointer, a number that means nothing, or an index beyond the last"},
    {VARNEL_BAD_HANDLE, "no request, or one that was freed"},
    {VARNEL_BAD_VERSION, "the size of a structure is none that this library knows"},
    {VARNEL_BAD_TEXT, "a text is not UTF-8"},
    {VARNEL_BAD_ORDER, "not at this point of a request"},
    {VARNEL_BUSY, "in use by another call"},
    {VARNEL_NO_MEMORY, "no memory"},
    {VARNEL_NO_HOST, "this platform has no Volume Shadow Copy service, and no simulated host is in use"},
    {VARNEL_CALL_FAILED, "a call of the platform failed"},
    {VARNEL_COM_TOO_LATE, "COM's security was set before, and not by this library"},
    {VARNEL_UNEXPECTED, "an unexpected failure"},
    {VARNEL_MIXED_CSV, "cluster shared volumes together with others"},
    {VARNEL_CLUSTERED_NO_CSV, "clustered volumes that are no cluster shared volumes"},
    {VARNEL_VALIDATION_FAILED, "the disks of the volumes could not be asked"},
    {VARNEL_MIXED_CLUSTER, "clustered volumes together with others"},
    {VARNEL_UNSUPPORTED_OS, "the version of the operating system is not supported"},
    {VARNEL_MISSING_HOTFIXES, "hotfixes are missing on this host"},
    {VARNEL_WRITER_FAILURE, "writers failed"},
    {VARNEL_PARTIAL_SUCCESS, "the set stands, but messages were collected"},
    {VARNEL_CONFIGURATION_ERROR, "nothing eligible, or the protection set is wrong"},
    {VARNEL_VERIFICATION_FAILURE, "a file of the snapshot failed its check"},
    {VARNEL_EXTRA_VOLUMES, "the set stands, but holds volumes that the application does not use"},
};

}  // namespace

int varnel_version() {
  return VARNEL_VERSION_NUMBER;
}

const char* varnel_version_text() {
  return VARNEL_VERSION;
}

int varnel_interface() {
  return VARNEL_C_INTERFACE;
}

const char* varnel_code_text(int code) {
  const auto* const found =
      std::find_if(std::begin(kTexts), std::end(kTexts), [&](const CodeText& entry) { return entry.code == code; });
  return found == std::end(kTexts) ? "no code of this library" : found->text;
}
