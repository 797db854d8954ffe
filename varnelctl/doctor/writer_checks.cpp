// The writers, the application that they stand for, and the provider of the array.
#include <algorithm>

#include "core/configuration.h"
#include "core/provider.h"
#include "core/vss_call.h"
#include "platform/owners.h"
#include "text/ascii_case.h"
#include "text/guid.h"
#include "text/unicode.h"
#include "varnelctl/console/text.h"
#include "varnelctl/doctor/check.h"
#include "varnelctl/doctor/file_version.h"
#include "varnelctl/exchange_installation.h"
#include "varnelctl/explanation/advice.h"
#include "varnelctl/explanation/next_step.h"
#include "varnelctl/explanation/requirement.h"
#include "varnelctl/program_search.h"
#include "varnelctl/providers.h"

namespace varnelctl {
namespace {

using varnel::ComPtr;

struct WriterService {
  Application application;
  const char* writer;
  const wchar_t* service;
};

constexpr WriterService kWriterServices[] = {
    {Application::Sql, "SqlServerWriter", L"SQLWriter"},
    {Application::Exchange, "Microsoft Exchange Writer", L"MSExchangeRepl"},
    {Application::HyperV, "Microsoft Hyper-V VSS Writer", L"vmms"},
};

// The names that the service's documentation has.
constexpr const char* kFailedAt[] = {"Identify",    "PrepareBackup", "PrepareSnapshot", "Freeze",
                                     "Thaw",        "PostSnapshot",  "BackupComplete",  "PreRestore",
                                     "PostRestore", "BackupShutdown"};

std::string StateText(VSS_WRITER_STATE state) {
  const int place = static_cast<int>(state) - static_cast<int>(VSS_WS_FAILED_AT_IDENTIFY);
  if (place < 0 || place >= static_cast<int>(std::size(kFailedAt))) return "it reports a failure";
  return std::string("it failed at ") + kFailedAt[place];
}

struct StatusOfWriter {
  GUID instanceId{};
  GUID writerId{};
  varnel::Bstr name;
  VSS_WRITER_STATE state = VSS_WS_UNKNOWN;
  HRESULT failure = S_OK;
};

// The state since the last backup of each writer that has answered; no writer is told of an event.
std::vector<StatusOfWriter> ReadStates(IVssBackupComponents& service) {
  ComPtr<IVssAsync> async;
  CheckCall("IVssBackupComponents::GatherWriterStatus",
            varnel::Delivered(service.GatherWriterStatus(async.Put()), async));
  CheckCall("IVssAsync::Wait", async->Wait(INFINITE));
  HRESULT result = S_OK;
  CheckCall("IVssAsync::QueryStatus", async->QueryStatus(&result, nullptr));
  CheckCall("IVssBackupComponents::GatherWriterStatus", result);
  UINT count = 0;
  CheckCall("IVssBackupComponents::GetWriterStatusCount", service.GetWriterStatusCount(&count));
  std::vector<StatusOfWriter> states;
  for (UINT index = 0; index < count; ++index) {
    StatusOfWriter& status = states.emplace_back();
    CheckCall("IVssBackupComponents::GetWriterStatus",
              service.GetWriterStatus(index, &status.instanceId, &status.writerId, status.name.Put(), &status.state,
                                      &status.failure));
  }
  service.FreeWriterStatus();
  return states;
}

bool TakesPart(Examination& examination, const StatusOfWriter& status) {
  const std::vector<VssWriter>& writers = examination.Writers();
  const std::vector<ApplicationView>& applications = examination.Applications();
  const std::wstring id = varnel::FormatGuid(status.writerId);
  return std::any_of(applications.begin(), applications.end(), [&](const ApplicationView& view) {
    return std::any_of(writers.begin(), writers.end(), [&](const VssWriter& writer) {
      return IsWriterOf(view.application, writer) && varnel::ascii::EqualIgnoringCase(writer.writerId, id);
    });
  });
}

bool IsInPart(const ApplicationObject& object) {
  return std::any_of(object.parts.begin(), object.parts.end(), [](const ComponentExplanation* part) {
    return part->ofFiles != Reason::None && part->ofFiles != Reason::NoFiles;
  });
}

// Told as a volume on several disks.
bool IsOnSeveralDisks(const ApplicationObject& object) {
  return std::any_of(object.parts.begin(), object.parts.end(),
                     [](const ComponentExplanation* part) { return part->ofFiles == Reason::SeveralDisks; });
}

bool LiesOn(const ApplicationObject& object, const std::vector<const DiskView*>& disks) {
  return std::any_of(disks.begin(), disks.end(), [&](const DiskView* disk) {
    return std::find(object.disks.begin(), object.disks.end(), disk->device.serialNumber) != object.disks.end();
  });
}

std::string WhyTorn(const Examination& examination, const ApplicationObject& object, Application application) {
  const std::string why = WhyNotWhole(object, application);
  if (!examination.options().disks.empty()) return "only a part of it lies on these disks: " + why;
  const std::string start = "only a part of it lies on disks of the array";
  if (object.missingDisks.empty()) return start + ": " + why;
  return start + ", another on disk " + SerialNumberList(object.missingDisks);
}

// They belong to the instance, and no set needs them.
bool IsSystemDatabase(const ApplicationObject& object, Application application) {
  constexpr const wchar_t* kNames[] = {L"master", L"model", L"msdb", L"tempdb"};
  return application == Application::Sql && std::any_of(std::begin(kNames), std::end(kNames), [&](const wchar_t* name) {
           return varnel::ascii::EqualIgnoringCase(object.component->name, name);
         });
}

// The first few by name: an instance may have thousands.
std::string FirstOf(const std::vector<std::string>& names) {
  constexpr std::size_t kMost = 5;
  std::string text;
  for (std::size_t i = 0; i < std::min(names.size(), kMost); ++i) text += (i == 0 ? "" : ", ") + names[i];
  return names.size() <= kMost ? text : text + " and " + std::to_string(names.size() - kMost) + " more";
}

void JudgeObjects(Examination& examination, const ApplicationView& view, Told& told) {
  const std::vector<const DiskView*>& disks = examination.Disks();
  const std::string noun(NounFor(view.application));
  std::vector<std::string> outside;
  for (const ApplicationObject& object : view.objects) {
    if (!IsInPart(object) || IsOnSeveralDisks(object)) continue;
    if (!LiesOn(object, disks)) {
      if (!IsSystemDatabase(object, view.application)) outside.push_back(object.name);
      continue;
    }
    // Where the plan gets through the set is taken without it.
    const PlanOutcome* const plan = examination.MadePlan();
    const bool isFailure = plan != nullptr && !plan->gotThrough;
    told.Add(Found(isFailure ? Severity::Error : Severity::Warning, noun + " " + object.name,
                   WhyTorn(examination, object, view.application), "all of its files on disks of one set",
                   advice::kNotWhole));
  }
  const bool isAsked = !examination.options().disks.empty() && view.application != Application::None;
  if (outside.empty() || !isAsked) return;
  const char* const found = outside.size() == 1 ? "lies on none of these disks" : "lie on none of these disks";
  told.Add(Found(Severity::Note, FirstOf(outside), found, "", advice::kOnOtherDisks));
}

constexpr wchar_t kMachineService[] = L"Vmms.exe";
constexpr char kNeededVmms[] = "6.3.9600.17120 or later";
constexpr DWORD kUnsupportedOs = 254;

std::string VersionOr(const wchar_t* file, const char* otherwise) {
  try {
    return ReadSystemFileVersion(file).text;
  } catch (const CallFailure&) {
    return otherwise;
  }
}

}  // namespace

void CheckProvider(Examination& /*examination*/, Told& told) {
  const std::vector<Provider> providers = ReadProviders();
  const auto own = std::find_if(providers.begin(), providers.end(),
                                [](const Provider& provider) { return provider.IsArrayProvider(); });
  if (own == providers.end()) {
    return told.Add(Found(Severity::Error, "the array's VSS hardware provider", "it is not registered on this host",
                          "provider " + varnel::WideToUtf8Lossy(varnel::FormatGuid(varnel::ArrayProviderId())),
                          "VSS_E_PROVIDER_NOT_REGISTERED"));
  }
  told.saw = Printable(own->name) + " " + Printable(own->version);
}

void CheckWriters(Examination& examination, Told& told) {
  const std::vector<VssWriter>& writers = examination.Writers();
  told.saw = Counted(writers.size(), "writer");
  const Application application = examination.options().application.value_or(Application::None);
  const auto isOfApplication = [&](const VssWriter& writer) { return IsWriterOf(application, writer); };
  if (std::any_of(writers.begin(), writers.end(), isOfApplication)) return;
  std::string object = "the writers";
  std::string found = "none has answered";
  for (const WriterService& known : kWriterServices) {
    if (known.application != application) continue;
    object = known.writer;
    found = "it has not answered";
    const std::string state = StateOfService(known.service);
    if (!state.empty()) found += "; its service " + Printable(known.service) + ": " + state;
  }
  told.Add(Found(Severity::Error, object, found, "a writer that answers Identify", MissingWriterCase(application)));
}

void CheckWriterStates(Examination& examination, Told& told) {
  if (examination.Writers().empty()) return;
  for (const StatusOfWriter& status : ReadStates(examination.Service())) {
    if (status.failure == S_OK) continue;
    const Severity severity = TakesPart(examination, status) ? Severity::Error : Severity::Warning;
    told.Add(FoundCode(severity, Printable(std::wstring(status.name.View())),
                       StateText(status.state) + ": " + NameOfCode(status.failure), "a writer that is stable",
                       status.failure));
  }
}

void CheckHyperVHost(Examination& examination, Told& told) {
  if (!examination.Concerns(Application::HyperV)) return;
  const std::string vmms = VersionOr(kMachineService, "missing");
  told.saw = "Vmms.exe " + vmms;
  std::string records;
  const DWORD code = MakeRequestor(Application::HyperV, 0, false)->ValidateHostConfiguration(records);
  if (code == 0) return;
  const Severity severity = examination.options().application ? Severity::Error : Severity::Warning;
  if (code == kUnsupportedOs) {
    return told.Add(Found(severity, "Windows",
                          "it is no server, or tells an older version than 6.3; it is " +
                              VersionOr(L"kernel32.dll", "of a version that is not known"),
                          "Windows Server 2012 R2 (6.3) or later", std::to_string(code)));
  }
  told.Add(Found(severity, "Vmms.exe", "its version is " + vmms, kNeededVmms, std::to_string(code)));
}

void CheckDatabases(Examination& examination, Told& told) {
  for (const ApplicationView& view : examination.Applications()) JudgeObjects(examination, view, told);
}

void CheckVolumeSupport(Examination& examination, Told& told) {
  IVssBackupComponents& service = examination.Service();
  for (const DiskView* disk : examination.Disks()) {
    for (const VolumeView& volume : disk->volumes) {
      BOOL supported = TRUE;
      std::wstring name = volume.name;  // the service takes a text that it might change
      CheckCall("IVssBackupComponents::IsVolumeSupported",
                service.IsVolumeSupported(varnel::ArrayProviderId(), name.data(), &supported));
      if (supported) continue;
      told.Add(Found(Severity::Error, NameOf(volume, disk), "the array's provider does not support it",
                     "a volume of the array", "VSS_E_VOLUME_NOT_SUPPORTED_BY_PROVIDER"));
    }
  }
}

void CheckChecker(Examination& examination, Told& told) {
  if (!examination.Concerns(Application::Exchange)) return;
  const std::wstring folder = ExchangeProgramFolder();
  const ProgramSearch search(folder);
  if (ProgramSearch::Finds(varnel::kDatabaseChecker)) return;
  told.Add(Found(Severity::Warning, "the checker " + Printable(varnel::kDatabaseChecker),
                 folder.empty() ? "it is not on the PATH, and the registry knows no installation of Exchange"
                                : "it is neither on the PATH nor in " + Printable(folder),
                 "that --verify finds it", advice::kCheckerMissing));
}

void CheckPlan(Examination& examination, Told& told) {
  const PlanOutcome& plan = *examination.Plan();
  if (!plan.failure) return;
  const Failure& failure = *plan.failure;
  Finding finding{Severity::Error,
                  "a snapshot of these disks",
                  "it would fail: " + failure.message,
                  {},
                  failure.explain,
                  failure.remedy,
                  failure.hresult};
  for (const std::string& detail : failure.details) finding.found += "; " + detail;
  told.Add(std::move(finding));
}

}  // namespace varnelctl
