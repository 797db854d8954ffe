// A pipe that nobody reads from, as Windows tells of it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>

#include "platform/win32.h"
#include "varnelctl/console/interruption.h"

namespace varnel::test {
namespace {

TEST(ClosedPipe, IsToldFromOtherFailures) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(::_pipe(ends, 512, _O_BINARY), 0);
  EXPECT_EQ(::_write(ends[1], "x", 1), 1);
  ::_close(ends[0]);
  EXPECT_EQ(::_write(ends[1], "x", 1), -1);
  EXPECT_TRUE(varnelctl::LastWriteHadNoReader());
  ::_close(ends[1]);

  const int readOnly = ::_open("NUL", _O_RDONLY);
  ASSERT_GE(readOnly, 0);
  EXPECT_EQ(::_write(readOnly, "x", 1), -1);
  EXPECT_FALSE(varnelctl::LastWriteHadNoReader());
  ::_close(readOnly);
}

}  // namespace
}  // namespace varnel::test
