// A host on which every application that the requestors know has a writer, all of them with files on disk TSL0001.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/varnel.h"
#include "tests/support/request_fixture.h"
#include "text/guid.h"

namespace varnel::test {

inline constexpr wchar_t kHyperVWriterName[] = L"Microsoft Hyper-V VSS Writer";
inline constexpr wchar_t kCsvWriterName[] = L"Cluster Shared Volume VSS Writer";
inline constexpr wchar_t kExchangeWriterName[] = L"Microsoft Exchange Writer";

/// A virtual machine, of which the caption names the state and the machine.
inline simulator::WriterComponent MakeMachine(std::wstring name, std::wstring caption, std::wstring directory) {
  simulator::WriterComponent component = MakeComponent(L"", std::move(name), {std::move(directory)});
  component.caption = std::move(caption);
  return component;
}

/// A mailbox database with its logs and its checkpoint.
inline simulator::WriterComponent MakeMailbox(std::wstring name) {
  simulator::WriterComponent component;
  component.logicalPath = L"Information Store\\EX01";
  component.caption = L"Mailbox " + name;
  component.files = {{L"E:\\mail", name + L".edb"}, {L"E:\\mail\\logs", L"E00*.log"}, {L"E:\\mail\\logs", L"E00.chk"}};
  component.name = std::move(name);
  return component;
}

/// The writers' instances are {0000000N-0001-...} in the order: 1 system, 2 and 3 SQL Server, 4 Exchange, 5 Hyper-V,
/// 6 cluster shared volumes.
inline simulator::HostModel HostWithEveryApplication() {
  simulator::HostModel model = SmallHost();
  model.computerName = L"SQL01";
  model.writers = {
      MakeWriter(L"System Writer", 1, {MakeComponent(L"", L"System Files", {L"E:\\system"})}),
      MakeWriterOf(kMsdeWriterId, L"MSDEWriter", 2, {MakeComponent(L"SQL01", L"old", {L"E:\\old"})}),
      MakeWriterOf(kSqlServerWriterId, L"SqlServerWriter", 3,
                   {MakeComponent(L"SQL01", L"sales", {L"E:\\sales"}), MakeComponent(L"SQL01", L"crm", {L"E:\\crm"})}),
      MakeWriterOf(kExchangeWriterId, kExchangeWriterName, 4, {MakeMailbox(L"DB1"), MakeMailbox(L"DB2")}),
      MakeWriterOf(kHyperVWriterId, kHyperVWriterName, 5,
                   {MakeMachine(L"ID-1", L"Online\\vm1", L"E:\\vm1"), MakeMachine(L"ID-2", L"Saved\\vm2", L"E:\\vm2"),
                    MakeMachine(L"ID-3", L"Online\\vm3", L"E:\\vm3")}),
      MakeWriterOf(kClusterSharedVolumeWriterId, kCsvWriterName, 6,
                   {MakeMachine(L"ID-4<CSV>node2", L"Online\\vm4", L"E:\\vm4")}),
  };
  return model;
}

/// The names of the writers that take part, in order.
inline std::vector<std::wstring> SelectedWriters(const CVarnel& requestor) {
  std::vector<std::wstring> names;
  for (const VssWriter& writer : requestor.GetWriters()) {
    if (!writer.excluded) names.push_back(writer.name);
  }
  return names;
}

/// A writer as metadata tells it, with nothing but its names.
inline VssWriter WriterNamed(std::wstring name, std::wstring writerId) {
  VssWriter writer;
  writer.name = std::move(name);
  writer.writerId = std::move(writerId);
  return writer;
}

/// Whether a requestor of this application accepts the writer.
template <class Requestor>
bool IsEligible(const std::wstring& name, const std::wstring& writerId) {
  Requestor requestor(0);
  CVarnel& base = requestor;
  VssWriter writer = WriterNamed(name, writerId);
  return base.IsWriterEligible(writer);
}

/// The line of a component that was added to the backup of the `n`th writer.
inline std::string AddedLine(int n, std::wstring_view writerId, const std::string& logicalPath,
                             const std::string& name) {
  return "IVssBackupComponents::AddComponent({0000000" + std::to_string(n) + "-0001-0000-0000-000000000000}, " +
         WideToUtf8Lossy(writerId) + ", 2, \"" + logicalPath + "\", \"" + name + "\") = S_OK";
}

/// The requestor's catalogue by disk: "TSL0001 id x", "TSL0001 name x", "TSL0001 other id x", "TSL0001 other name x".
inline std::vector<std::string> CatalogueLines(CVarnel& requestor) {
  std::map<std::string, ApplicationObjectMeatadataInfo> metadata;
  requestor.GetSnapshotMeatadata(metadata);
  std::vector<std::string> lines;
  for (const auto& [disk, info] : metadata) {
    for (const std::string& id : info.appObjectIds) lines.push_back(disk + " id " + id);
    for (const std::string& name : info.appObjectNames) lines.push_back(disk + " name " + name);
    for (const std::string& id : info.otherObjectIds) lines.push_back(disk + " other id " + id);
    for (const std::string& name : info.otherObjectNames) lines.push_back(disk + " other name " + name);
  }
  return lines;
}

}  // namespace varnel::test
