// What is open at the current host's iSCSI initiator.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/host.h"
#include "text/unicode.h"

namespace varnel::test {

/// The targets of the open sessions, in the initiator's order.
inline std::vector<std::string> OpenTargets() {
  ULONG bytes = 0;
  ULONG count = 0;
  IscsiInitiator& initiator = CurrentHost().iscsi();
  initiator.GetIScsiSessionListW(&bytes, &count, nullptr);
  std::vector<iscsi::SessionInfo> buffer(bytes / sizeof(iscsi::SessionInfo) + 1);
  EXPECT_EQ(initiator.GetIScsiSessionListW(&bytes, &count, buffer.data()), DWORD{ERROR_SUCCESS});
  std::vector<std::string> targets;
  for (ULONG i = 0; i < count; ++i) targets.push_back(WideToUtf8Lossy(buffer[i].TargetName));
  return targets;
}

}  // namespace varnel::test
