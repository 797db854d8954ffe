// What crosses the boundary of varnel.dll: everything that it throws is caught by its type here, with its content, and
// what a program's own requestor throws passes through the DLL and arrives unchanged.
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include "requestors/ExchReq.h"
#include "requestors/HyperVReq.h"
#include "requestors/SqlReq.h"
#include "tests/support/host_fixture.h"
#include "text/format.h"

namespace varnel::test {
namespace {

// The kind of an exception as this module's catch clauses tell it.
template <class Action>
std::string Caught(Action action) {
  try {
    action();
  } catch (long hr) {
    return FormatNarrow("long 0x%08lx", {hr});
  } catch (const VarnelException& exception) {
    return "VarnelException " + std::to_string(exception.GetAlertCode()) + " " +
           std::to_string(exception.GetMessageList().size()) + " " + exception.what();
  } catch (const TesselCommonClasses::ExceptionCommon& exception) {
    return std::string("ExceptionCommon ") + exception.what();
  } catch (const std::invalid_argument&) {
    return "std::invalid_argument";
  } catch (const std::out_of_range&) {
    return "std::out_of_range";
  } catch (const std::range_error&) {
    return "std::range_error";
  } catch (const std::bad_alloc&) {
    return "std::bad_alloc";
  } catch (...) {
    return "something else";
  }
  return "nothing";
}

class DllBoundaryTest : public HostFixture {
 protected:
  void SetUp() override {
    simulator::HostModel model = SmallHost();
    model.writers = {MakeWriter(L"Mail", 1, {MakeComponent(L"mail", L"db1", {L"E:\\db1"})})};
    Install(std::move(model));
  }

  template <class Requestor>
  void Initialize(Requestor& requestor, std::vector<std::wstring> disks = {L"TSL0001"}) {
    requestor.SetInputDriveSerialNos(std::move(disks));
    requestor.Initialize(0, L"", false, VSS_BT_FULL, details_, &enumerator_);
  }

  TesselCommonClasses::DiskAndVolumeEnumerator enumerator_;
  std::string details_ = "writer=0,";
};

TEST_F(DllBoundaryTest, ABareHresultIsCaughtAsALong) {
  CVarnel requestor(0);
  EXPECT_EQ(Caught([&] { requestor.SetInputDriveSerialNos({}); }), "long 0x80070057");
  host().faults().FailCall("IVssBackupComponents::InitializeForBackup", static_cast<DWORD>(VSS_E_UNEXPECTED));
  EXPECT_EQ(Caught([&] { Initialize(requestor); }), "long 0x80042302");
}

TEST_F(DllBoundaryTest, AFailedRequestIsCaughtAsAVarnelExceptionWithItsTexts) {
  CVarnel requestor(0);
  Initialize(requestor, {L"TSL0002", L"TSL0003"});
  try {
    requestor.CreateVssSnapshotSet(details_);
    FAIL() << "nothing was thrown";
  } catch (const VarnelException& exception) {
    EXPECT_EQ(exception.GetAlertCode(), VarnelException::ConfigurationError);
    ASSERT_EQ(exception.GetMessageList().size(), 1u);
    EXPECT_NE(exception.GetMessageList()[0].find(L"TSL0002, TSL0003"), std::wstring::npos);
    EXPECT_FALSE(exception.GetMessageText().empty());
    const VarnelException copy = exception;  // made here of what the DLL allocated
    EXPECT_STREQ(copy.what(), exception.what());
  }
}

TEST_F(DllBoundaryTest, AVarnelExceptionIsAStandardException) {
  CVarnel requestor(0);
  Initialize(requestor, {L"TSL0002", L"TSL0003"});
  EXPECT_THROW(requestor.CreateVssSnapshotSet(details_), std::exception);
}

TEST_F(DllBoundaryTest, TheCommonClassesThrowTheirOwnException) {
  host().faults().FailCall("GetSystemDirectoryW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(Caught([&] { enumerator_.EnumerateDisks(true); }), "ExceptionCommon GetSystemDirectoryW() failed with 5");
}

TEST_F(DllBoundaryTest, TextThatIsNoUtf8IsARangeError) {
  EXPECT_EQ(Caught([] { CVarnel::stringToWstring("\xff"); }), "std::range_error");
}

TEST_F(DllBoundaryTest, AWriterCodeThatIsNoNumberIsAnInvalidArgument) {
  CVarnel requestor(0);
  Initialize(requestor);
  details_ = "writer=x,";
  EXPECT_EQ(Caught([&] { requestor.CreateVssSnapshotSet(details_); }), "std::invalid_argument");
}

TEST_F(DllBoundaryTest, AWriterCodeBeyondAnIntIsOutOfRange) {
  CVarnel requestor(0);
  Initialize(requestor);
  details_ = "writer=99999999999,";
  EXPECT_EQ(Caught([&] { requestor.CreateVssSnapshotSet(details_); }), "std::out_of_range");
}

struct OwnException {
  int value;
};

// A requestor of this program, called by the DLL.
class OwnRequestor : public CVarnel {
 public:
  using CVarnel::CVarnel;
  bool IsWriterEligible(VssWriter& writer) override {
    if (throws == 1) throw OwnException{42};
    if (throws == 2) throw std::bad_alloc();
    return writer.name == L"Mail";
  }
  void VerifyComponentFile(VssFileDescriptor& file) override {
    throw VarnelException(VarnelException::VerificationFailure, L"damaged: " + file.path, {L"one", L"two"});
  }
  int throws = 0;
};

TEST_F(DllBoundaryTest, WhatAProgramsOwnRequestorThrowsPassesThroughTheDll) {
  OwnRequestor requestor(0);
  Initialize(requestor);
  requestor.throws = 1;
  try {
    requestor.CreateVssSnapshotSet(details_);
    FAIL() << "nothing was thrown";
  } catch (const OwnException& exception) {
    EXPECT_EQ(exception.value, 42);
  }
}

TEST_F(DllBoundaryTest, MemoryThatIsNotThereIsABadAlloc) {
  OwnRequestor requestor(0);
  Initialize(requestor);
  requestor.throws = 2;
  EXPECT_EQ(Caught([&] { requestor.CreateVssSnapshotSet(details_); }), "std::bad_alloc");
}

TEST_F(DllBoundaryTest, AVerificationFailureOfAProgramsOwnRequestorComesBackWhole) {
  OwnRequestor requestor(0);
  Initialize(requestor);
  requestor.CreateVssSnapshotSet(details_);
  EXPECT_EQ(Caught([&] { requestor.VerifySnapShotData(); }), "VarnelException 603 2 damaged: E:\\db1");
  requestor.SetBackupStatus(VarnelException::VerificationFailure, details_);
}

TEST_F(DllBoundaryTest, RecordsCrossTheBoundaryInBothDirections) {
  CVarnel requestor(0);
  Initialize(requestor);
  requestor.CreateVssSnapshotSet(details_);
  ASSERT_EQ(requestor.GetWriters().size(), 1u);
  EXPECT_EQ(requestor.GetWriters()[0].components.at(0).fullPath, L"\\mail\\db1");
  std::map<std::string, ApplicationObjectMeatadataInfo> catalog;
  requestor.GetSnapshotMeatadata(catalog);
  EXPECT_THAT(catalog["TSL0001"].appObjectIds, ElementsAre("\\mail\\db1"));
  requestor.SetBackupStatus(0, details_);
}

TEST_F(DllBoundaryTest, EveryApplicationRequestorLivesInTheDll) {
  const SqlReq sql(0);
  const ExchangeReq exchange(0, true);
  HyperVReq hyperV(0);
  std::string status;
  EXPECT_EQ(hyperV.ValidateVolumes({}, status, details_, {}, ""), 0u);
  EXPECT_EQ(sql.GetContext() + exchange.GetContext(), 0u);
}

}  // namespace
}  // namespace varnel::test
