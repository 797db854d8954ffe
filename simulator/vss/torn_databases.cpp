#include "simulator/vss/torn_databases.h"

#include <unordered_set>

#include "simulator/machine/volumes.h"
#include "simulator/services/simulated_system.h"
#include "simulator/vss/writer_session.h"
#include "text/ascii_case.h"
#include "text/guid.h"

namespace varnel::simulator {
namespace {

// This writer tells its databases as file groups.
constexpr GUID kSqlServerWriter = ParseGuid<GUID>("{a65faa63-5ea8-4ebc-9dbd-a0c4db26912a}");

constexpr auto kTornInVolumeMode = static_cast<HRESULT>(0x80780002);

using Names = std::unordered_set<std::wstring>;  // in lower case

bool IsDatabase(const Writer& writer, const WriterComponent& component) {
  return component.type == VSS_CT_DATABASE || writer.writerId == kSqlServerWriter;
}

Names LowerCase(const std::vector<std::wstring>& names) {
  Names lower;
  for (const std::wstring& name : names) lower.insert(ascii::ToLower(name));
  return lower;
}

// How a database lies to a set of volumes.
struct Cover {
  bool touched = false;  // a file is in the set
  std::wstring outside;  // the first file that is not; empty: every one is

  bool IsTorn() const { return !outside.empty(); }
};

void Add(const Machine& machine, const Names& volumes, const std::vector<FileSpec>& files, Cover& cover) {
  for (const FileSpec& file : files) {
    std::wstring path = ExpandVariables(machine.model(), file.path);
    if (!path.ends_with(L'\\')) path += L'\\';
    const std::optional<VolumeView> volume = FindVolumeOfPath(machine, path);
    const bool inSet = volume && volume->volume != nullptr && volumes.contains(ascii::ToLower(volume->volume->name));
    if (inSet) cover.touched = true;
    if (!inSet && cover.outside.empty()) cover.outside = path + file.filespec;
  }
}

Cover CoverOf(const Machine& machine, const WriterComponent& database, const Names& volumes) {
  Cover cover;
  Add(machine, volumes, database.files, cover);
  Add(machine, volumes, database.databaseFiles, cover);
  Add(machine, volumes, database.logFiles, cover);
  return cover;
}

class Selection {
 public:
  explicit Selection(const std::vector<DocumentComponent>& added) {
    for (const DocumentComponent& component : added) {
      added_.insert(FullPathKey(component.logicalPath.value_or(L""), component.name));
    }
  }

  bool Holds(const WriterComponent& component) const {
    const std::wstring path = FullPathKey(component.logicalPath.value_or(L""), component.name);
    for (std::size_t end = path.find(L'\\'); end != path.npos; end = path.find(L'\\', end + 1)) {
      if (added_.contains(path.substr(0, end))) return true;
    }
    return added_.contains(path);
  }

 private:
  Names added_;
};

std::wstring Describe(const WriterComponent& database, const Cover& cover) {
  return L"Database " + database.name + L" is torn: " + cover.outside + L" is on no volume of the set";
}

// Adds a torn database to what the writer says, of itself and of the component.
void AddTorn(std::optional<WriterFault>& fault, WriterEvent event, const WriterComponent& database,
             const std::wstring& text) {
  constexpr HRESULT kFailure = VSS_E_WRITERERROR_INCONSISTENTSNAPSHOT;
  if (!fault) fault = WriterFault{L"", event, kFailure, S_OK, L"", {}};
  fault->applicationMessage += (fault->applicationMessage.empty() ? L"" : L"; ") + text;
  fault->components.push_back({FullPath(database), kFailure, S_OK, text});
}

}  // namespace

std::optional<WriterFault> JudgeSelectedDatabases(const Machine& machine, const Writer& writer,
                                                  const std::vector<DocumentComponent>& added,
                                                  const std::vector<std::wstring>& volumes) {
  const Selection selection(added);
  const Names set = LowerCase(volumes);
  std::optional<WriterFault> fault;
  for (const WriterComponent& component : writer.components) {
    if (!IsDatabase(writer, component) || !selection.Holds(component)) continue;
    const Cover cover = CoverOf(machine, component, set);
    if (cover.IsTorn()) AddTorn(fault, WriterEvent::postSnapshot, component, Describe(component, cover));
  }
  return fault;
}

std::optional<WriterFault> JudgeDatabasesOfVolumes(const Machine& machine, const Writer& writer,
                                                   const std::vector<std::wstring>& volumes) {
  const Names set = LowerCase(volumes);
  std::optional<WriterFault> fault;
  for (const WriterComponent& component : writer.components) {
    if (!IsDatabase(writer, component)) continue;
    const Cover cover = CoverOf(machine, component, set);
    if (!cover.touched || !cover.IsTorn()) continue;
    AddTorn(fault, WriterEvent::prepareSnapshot, component, Describe(component, cover));
    fault->applicationResult = kTornInVolumeMode;
  }
  return fault;
}

}  // namespace varnel::simulator
