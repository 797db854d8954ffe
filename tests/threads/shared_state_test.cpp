// What the library keeps for the whole process, used on several threads at once.
#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "platform/tessel/MetadataWrapper.h"
#include "tests/support/files.h"
#include "tests/support/request_fixture.h"
#include "tests/threads/thread_support.h"

namespace varnel::test {
namespace {

using TesselCommonClasses::DiskAndVolumeEnumerator;

// Runs `work` with the numbers from 0 on, each on a thread of its own.
void OnThreads(int count, const std::function<void(int)>& work) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(work, i);
  for (std::thread& thread : threads) thread.join();
}

class SharedState : public HostFixture {};

TEST_F(SharedState, TheSystemDrivesSerialNumberIsReadWhileOthersEnumerateAnUnchangedHost) {
  DiskAndVolumeEnumerator().EnumerateDisks(true);
  std::atomic<int> enumerating = 2;
  OnThreads(3, [&](int i) {
    if (i == 0) {
      do {
        EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"SYS");
      } while (enumerating != 0);
      return;
    }
    DiskAndVolumeEnumerator enumerator;
    for (int round = 0; round < 50; ++round) enumerator.EnumerateDisks(true);
    EXPECT_EQ(enumerator.GetDisks().size(), 3u);
    --enumerating;
  });
}

TEST_F(SharedState, FirstEnumerationsOnTwoThreadsBothKnowTheSystemDrive) {
  DiskAndVolumeEnumerator::systemDriveSerialNumber.clear();
  OnThreads(2, [](int) {
    DiskAndVolumeEnumerator enumerator;
    enumerator.EnumerateDisks(true);
    EXPECT_EQ(DiskAndVolumeEnumerator::systemDriveSerialNumber, L"SYS");
  });
}

TEST_F(SharedState, AThreadSeesItsOwnLastError) {
  Meeting failed(2);
  OnThreads(2, [&](int i) {
    if (i == 0) {
      EXPECT_EQ(CurrentHost().messages().LoadLibraryW(L"nowhere.dll"), nullptr);
    } else {
      EXPECT_EQ(CurrentHost().storage().GetVolumePathNameW(L"", nullptr, 0), FALSE);
    }
    failed.ArriveAndWait();
    EXPECT_EQ(CurrentHost().GetLastError(), i == 0 ? DWORD{ERROR_MOD_NOT_FOUND} : DWORD{ERROR_INVALID_NAME});
  });
  EXPECT_EQ(CurrentHost().GetLastError(), DWORD{ERROR_SUCCESS});
}

TEST_F(SharedState, TheBridgeAnswersSeveralThreads) {
  model().databases = {{L"TSL0001", L"sales@sql01"}, {L"TSL0002", L"crm@sql01"}};
  MetadataWrapper& bridge = *MetadataWrapper::GetMetadataWrapperInstance();
  OnThreads(4, [&](int i) {
    static constexpr std::array kDisks = {"TSL0001", "TSL0002", "TSL0001", "none"};
    for (int round = 0; round < 100; ++round) {
      EXPECT_EQ(bridge.W_FindDataBaseToQuiesce(kDisks[static_cast<std::size_t>(i)]), i != 3);
    }
  });
  ASSERT_TRUE(bridge.W_FindDataBaseToQuiesce("TSL0002"));
  EXPECT_STREQ(bridge.GetdbFilesToQuiescePtr(), "crm@sql01");
}

TEST_F(SharedState, ARequestReadsItsOwnDatabaseListWhileOthersFetchTheirs) {
  model().databases = {{L"TSL0001", L"sales@host"}, {L"TSL0002", L"crm@host"}};
  OnThreads(2, [](int i) {
    for (int round = 0; round < 50; ++round) {
      SnapshotRequest request({.serialNumbers = {i == 0 ? L"TSL0001" : L"TSL0002"}});
      request.requestor.SetInputDriveSerialNos({i == 0 ? L"TSL0001" : L"TSL0002"});
      std::set<std::wstring> components;
      request.probe.GetComponentsList(components);
      EXPECT_THAT(components, ElementsAre(i == 0 ? L"\\host\\sales" : L"\\host\\crm"));
    }
  });
}

TEST_F(SharedState, TwoLogFilesAreWrittenAtOnce) {
  OnThreads(2, [](int) {
    const TemporaryFile file;
    for (int round = 0; round < 20; ++round) {
      OpenLogFile(file.path, CFileLog::Verbose)->Write(CFileLog::Error, L"varnel", 1, L"text");
    }
    EXPECT_EQ(std::ranges::count(ReadFile(file.path), '\n'), 20);
  });
}

TEST(SharedException, SaysWhatHappenedOnSeveralThreads) {
  const VarnelException exception(600, std::wstring(100, L'x'));
  OnThreads(4, [&](int) {
    for (int round = 0; round < 100; ++round) {
      const char* text = exception.what();
      EXPECT_EQ(VarnelException(exception).what(), std::string(100, 'x'));
      EXPECT_EQ(text, std::string(100, 'x')) << "it stays while others ask";
    }
  });
}

}  // namespace
}  // namespace varnel::test
