#include "varnelctl/evidence/collectors.h"

#include <array>
#include <stdexcept>

#include "platform/host.h"
#include "platform/owners.h"
#include "text/unicode.h"
#include "varnelctl/console/json.h"
#include "varnelctl/console/text.h"
#include "varnelctl/evidence/events.h"
#include "varnelctl/evidence/writer_documents.h"
#include "varnelctl/report/header.h"
#include "varnelctl/report/host_json.h"
#include "varnelctl/sets/journal.h"
#include "varnelctl/sets/journal_document.h"
#include "varnelctl/storage_view.h"

namespace varnelctl {
namespace {

// There is no such thing, and nothing went wrong.
class NoSuchThing : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

constexpr char kNotSoFar[] = "the run did not come so far";

EvidenceFile FileOf(const char* name, const char* title) {
  return {name, title, {}, {}};
}

EvidenceFile HeaderFile() {
  return FileOf("header.txt", "What ran, where and when");
}
EvidenceFile CallsFile() {
  return FileOf("calls.txt", "Every call to the simulated host, in its order");
}
EvidenceFile DocumentFile() {
  return FileOf("backup.xml", "The backup components document of the set");
}
EvidenceFile CatalogFile() {
  return FileOf("catalog.json", "The application objects of the set, by disk");
}
EvidenceFile JournalFile() {
  return FileOf("journal.json", "What is remembered of the request beyond its process");
}
EvidenceFile ProvidersFile() {
  return FileOf("providers.json", "The registered providers");
}
EvidenceFile DisksFile() {
  return FileOf("disks.json", "Disks, volumes and mount points, as they were after the run");
}
EvidenceFile SessionsFile() {
  return FileOf("iscsi.json", "The open iSCSI sessions, as they were after the run");
}
EvidenceFile EventsFile() {
  return FileOf("events-*", "The event log of the time of the run");
}
EvidenceFile WritersFile() {
  return FileOf("writer-*", "The documents in which the writers describe themselves");
}

std::string TextOf(const Json& json) {
  return EscapeUnprintable(json.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n";
}

// In words.
std::string ReasonOf(const std::exception_ptr& thrown) {
  try {
    std::rethrow_exception(thrown);
  } catch (const NoSuchThing& reason) {
    return reason.what();
  } catch (...) {
    return DescribeFailure(std::current_exception(), "the library").message;
  }
}

// Unless the run handed it over.
template <class Question>
void Collect(FoundEvidence& found, EvidenceFile file, Question question) {
  if (found.Has(file.name)) return;
  try {
    file.content = question();
  } catch (...) {
    file.whyNot = ReasonOf(std::current_exception());
  }
  found.Add(std::move(file));
}

void AddMissing(FoundEvidence& found, EvidenceFile file, const std::string& reason) {
  Collect(found, std::move(file), [&]() -> std::string { throw NoSuchThing(reason); });
}

// "Windows Server 2019 Standard, build 17763"; empty where the registry does not say.
std::string WindowsVersion() {
  const auto value = [](const wchar_t* name) {
    constexpr wchar_t kKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    std::array<wchar_t, 256> text{};
    DWORD bytes = sizeof text;
    const auto result = varnel::CurrentHost().registry().RegGetValueW(HKEY_LOCAL_MACHINE, kKey, name, RRF_RT_REG_SZ,
                                                                      nullptr, text.data(), &bytes);
    return result == ERROR_SUCCESS ? Printable(text.data()) : std::string();
  };
  const std::string product = value(L"ProductName");
  const std::string build = value(L"CurrentBuildNumber");
  return product + (product.empty() || build.empty() ? "" : ", build ") + build;
}

std::string HeaderText(const Header& header) {
  std::string text;
  for (const std::string& line : HeaderLines(header)) text += line + "\n";
  return text;
}

// The entries of this process's run: one, or one of each try.
std::string JournalText(const Session& session) {
  if (!session.journal) throw NoSuchThing("requests on this host are not remembered");
  Json entries = Json::array();
  for (const JournalEntry& entry : session.journal->Read().entries) {
    if (entry.process != ThisProcess() || entry.start != session.document.header()->start) continue;
    entries.push_back(Json::parse(FormatJournalEntry(entry)));
  }
  if (entries.empty()) throw NoSuchThing("nothing is remembered of a request that took no set");
  return TextOf(entries);
}

// A question that needs no writer, such as that for the providers.
void RequireService(ExitStatus status) {
  if (status == ExitStatus::Done) throw NoSuchThing("after a run that ended well the service is asked nothing more");
  if (status == ExitStatus::Stopped)
    throw NoSuchThing("the run was made to end, and the service is asked nothing more");
}

void RequireWriters(ExitStatus status, std::optional<unsigned long long> milliseconds) {
  RequireService(status);
  if (status == ExitStatus::Usage) throw NoSuchThing("the run was refused before anything was asked of the writers");
  if (!milliseconds) throw NoSuchThing("the deadline of the run was past");
}

void CollectWriters(const Session& session, ExitStatus status, std::optional<unsigned long long> milliseconds,
                    FoundEvidence& found) {
  try {
    RequireWriters(status, milliseconds);
    const auto interruption = session.watchInterruption ? session.watchInterruption() : nullptr;
    auto files = AskForWriterDocuments(interruption.get(), *milliseconds);
    if (files.empty()) throw NoSuchThing("no writer answered");
    for (EvidenceFile& file : files) found.Add(std::move(file));
  } catch (...) {
    EvidenceFile missing = WritersFile();
    missing.whyNot = ReasonOf(std::current_exception());
    found.Add(std::move(missing));
  }
}

// From a minute before the run on: what went wrong may have begun before.
void CollectEvents(const Session& session, FoundEvidence& found) {
  constexpr long long kMinute = 600'000'000;
  const Header& header = *session.document.header();
  std::vector<std::string> providers;
  for (const Provider& provider : found.providers) providers.push_back(varnel::WideToUtf8Lossy(provider.name));
  const std::string application = header.request ? header.request->application : "";
  for (EvidenceFile& file : ReadEventEvidence(application, providers, header.fileTime - kMinute, FileTimeNow())) {
    found.Add(std::move(file));
  }
}

// Before any question, which makes calls too.
void CollectCalls(const Session& session, FoundEvidence& found) {
  Collect(found, CallsFile(), [&] {
    if (session.calls == nullptr) throw NoSuchThing("this machine keeps no log of its calls");
    return session.calls->Text();
  });
}

}  // namespace

void CollectFromHost(const Session& session, ExitStatus status, std::optional<unsigned long long> milliseconds,
                     FoundEvidence& found) {
  CollectCalls(session, found);
  Collect(found, HeaderFile(), [&] {
    const std::string windows = WindowsVersion();
    return HeaderText(*session.document.header()) + (windows.empty() ? "" : windows + "\n");
  });
  AddMissing(found, DocumentFile(), kNotSoFar);
  AddMissing(found, CatalogFile(), kNotSoFar);
  Collect(found, JournalFile(), [&] { return JournalText(session); });
  Collect(found, ProvidersFile(), [&] {
    if (found.providers.empty()) {
      RequireService(status);
      found.providers = ReadProviders();
    }
    return TextOf(ProvidersJson(found.providers));
  });
  Collect(found, DisksFile(), [&] { return TextOf(StorageJson(ReadStorage())); });
  Collect(found, SessionsFile(), [&] { return TextOf(SessionsJson(ListSessions())); });
  CollectEvents(session, found);
  CollectWriters(session, status, milliseconds, found);
}

void CollectWithoutHost(const Session& session, FoundEvidence& found) {
  Collect(found, HeaderFile(), [&] { return HeaderText(*session.document.header()); });
  for (const EvidenceFile& file : {DocumentFile(), CatalogFile(), JournalFile(), ProvidersFile(), DisksFile(),
                                   SessionsFile(), EventsFile(), WritersFile(), CallsFile()}) {
    AddMissing(found, file, "the host was not asked: " + std::string(kNotSoFar));
  }
}

void CollectWhileHung(const Session& session, FoundEvidence& found) {
  CollectCalls(session, found);
  Collect(found, HeaderFile(), [&] { return HeaderText(*session.document.header()); });
  for (const EvidenceFile& file : {DocumentFile(), CatalogFile()}) {
    AddMissing(found, file, "the run hung before it was handed over");
  }
  Collect(found, JournalFile(), [&] { return JournalText(session); });
  for (const EvidenceFile& file : {ProvidersFile(), DisksFile(), SessionsFile(), EventsFile(), WritersFile()}) {
    AddMissing(found, file, "the host was not asked: a call hung");
  }
}

EvidenceFile DocumentEvidence(std::string xml) {
  EvidenceFile file = DocumentFile();
  if (xml.empty()) file.whyNot = "the request did not come so far that the service had one";
  file.content = std::move(xml);
  return file;
}

EvidenceFile CatalogEvidence(const Json& catalog) {
  EvidenceFile file = CatalogFile();
  file.content = TextOf(catalog);
  return file;
}

}  // namespace varnelctl
