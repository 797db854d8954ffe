#include "tests/faults/reference_scenario.h"

#include <algorithm>
#include <utility>

#include "tests/support/random.h"
#include "text/guid.h"

namespace varnel::test::reference {
namespace {

using simulator::Disk;
using simulator::FileSpec;
using simulator::HostModel;
using simulator::Volume;
using simulator::Writer;
using simulator::WriterComponent;

constexpr HRESULT kUnnamedFailure = static_cast<HRESULT>(0x80040E14);

// Few names, so that components are often related, equal, or alike but for their case.
const std::vector<std::wstring> kNames = {L"a", L"A", L"b", L"ab", L"sql01", L"SQL01", L"a b", L"\u00C4", L"\u00E4"};

std::wstring VolumeNameOf(unsigned number) {
  return L"\\\\?\\Volume{AbCd000" + std::to_wstring(number) + L"-0000-0000-0000-00000000000e}\\";
}

std::wstring OtherCase(std::wstring text) {
  for (wchar_t& c : text) {
    if (c >= L'a' && c <= L'z') {
      c = static_cast<wchar_t>(c - L'a' + L'A');
    } else if (c >= L'A' && c <= L'Z') {
      c = static_cast<wchar_t>(c - L'A' + L'a');
    }
  }
  return text;
}

bool SameInAnyCase(const std::wstring& a, const std::wstring& b) {
  const auto same = [](wchar_t x, wchar_t y) { return x == y || OtherCase({x}) == std::wstring{y}; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), same);
}

class ScenarioMaker {
 public:
  explicit ScenarioMaker(unsigned seed) : random_(seed) {}

  Scenario Make() {
    calm_ = random_.Chance(60);
    MakeMachine();
    MakeDisks();
    MakeWriters();
    MakeInput();
    MakeDatabases();
    MakeMessages();
    MakeRequest();
    for (Check& check : scenario_.checks) MakeCheck(check);
    return std::move(scenario_);
  }

 private:
  HostModel& host() { return scenario_.host; }
  // A chance that calm hosts have a tenth of.
  bool Oddly(unsigned percent) { return calm_ ? random_.Below(1000) < percent : random_.Chance(percent); }

  // ---- the machine and its disks ----

  void MakeMachine() {
    host().computerName = random_.Pick<const wchar_t*>({L"A", L"ab", L"SQL01"});
    host().providers = {
        {ParseGuid<GUID>("{374579ad-285c-49b9-ab8a-950e0e252de2}"), L"Provider", VSS_PROV_HARDWARE, L"1"}};
    if (Oddly(5)) host().providers.clear();
    if (random_.Chance(20)) {
      host().cluster = simulator::ClusterNode{L"CLU", {{L"A", L"ab"}, {L"sql01", L"A"}, {L"b", L""}}};
    }
  }

  void MakeDisks() {
    const unsigned count = 1 + random_.Below(6);
    std::vector<DWORD> numbers;
    for (DWORD number = 0; number <= count; ++number) numbers.push_back(number);
    random_.Shuffle(numbers);
    for (unsigned i = 0; i < count; ++i) {
      const bool system = i == 0 && count > 1 && !Oddly(20);
      Disk disk;
      disk.number = numbers[i];
      disk.system = system;
      disk.vendor = L"Tessel";
      disk.serial = system ? L"SYS" : SerialOf(i);
      disk.reportsSerial = !Oddly(10);
      const unsigned volumes = 1 + (random_.Chance(30) ? 1 : 0);
      for (unsigned v = 0; v < volumes; ++v) {
        disk.volumes.push_back(MakeVolume(i == 0 && v == 0));
        if (count > 1 && Oddly(10)) disk.volumes.back().otherDisks = {numbers[(i + 1) % count]};
      }
      host().disks.push_back(std::move(disk));
    }
    random_.Shuffle(host().disks);
    if (!mountPoints_.empty()) host().environment = {{L"Data", random_.PickFrom(mountPoints_) + L"db"}};
  }

  std::wstring SerialOf(unsigned index) {
    const std::wstring serial = L"TSLa" + std::to_wstring(index);
    if (Oddly(8)) return L"  " + serial + L" ";
    if (Oddly(4)) return L"";
    if (Oddly(8)) return L"sys";
    if (index > 0 && Oddly(15)) return L"tslA" + std::to_wstring(index - 1);  // one like it but for the case
    return serial;
  }

  Volume MakeVolume(bool systemDrive) {
    Volume volume;
    volume.name = VolumeNameOf(++volumes_);
    if (systemDrive) volume.mountPoints.push_back(L"C:\\");
    if (!systemDrive && random_.Chance(75)) volume.mountPoints.push_back(NextDrive());
    if (!mountPoints_.empty() && random_.Chance(25)) {
      volume.mountPoints.push_back(random_.PickFrom(mountPoints_) + L"mnt" + std::to_wstring(volumes_) + L"\\");
    }
    mountPoints_.insert(mountPoints_.end(), volume.mountPoints.begin(), volume.mountPoints.end());
    return volume;
  }

  std::wstring NextDrive() { return std::wstring(1, static_cast<wchar_t>(L'D' + drives_++)) + L":\\"; }

  // ---- the writers ----

  void MakeWriters() {
    const unsigned count = 1 + random_.Below(5);
    for (unsigned i = 1; i <= count; ++i) {
      Writer writer;
      writer.name = L"Writer" + std::to_wstring(Oddly(10) ? 1 : i);
      writer.writerId.Data1 = i;
      writer.instanceId.Data1 = Oddly(8) ? 1 : i;
      writer.instanceId.Data2 = 0xAB;
      writer.source = VSS_ST_OTHER;
      home_ = random_.Below(static_cast<unsigned>(host().disks.size()));
      for (unsigned c = random_.Below(9); c > 0; --c) writer.components.push_back(MakeComponent(writer.components));
      random_.Shuffle(writer.components);
      if (random_.Chance(10)) scenario_.ineligibleWriters.push_back(writer.name);
      host().writers.push_back(std::move(writer));
    }
  }

  WriterComponent MakeComponent(const std::vector<WriterComponent>& others) {
    WriterComponent component;
    const std::wstring path = LogicalPath(others);
    if (!path.empty() || random_.Chance(50)) component.logicalPath = path;
    component.name = Oddly(5) ? L"" : Name();
    if (random_.Chance(90)) component.caption = L"Caption " + std::to_wstring(++captions_);
    component.selectable = random_.Chance(75);
    component.type = random_.Chance(30) ? VSS_CT_DATABASE : VSS_CT_FILEGROUP;
    const bool empty = random_.Chance(15);
    for (unsigned files = empty ? 0 : 1 + random_.Below(4); files > 0; --files) AddFile(component);
    return component;
  }

  // Often a place below another component.
  std::wstring LogicalPath(const std::vector<WriterComponent>& others) {
    std::wstring path;
    if (!others.empty() && random_.Chance(40)) {
      path = simulator::FullPath(random_.PickFrom(others)).substr(1);
      return random_.Chance(20) ? OtherCase(path) : path;
    }
    for (unsigned depth = random_.Below(3); depth > 0; --depth) path += (path.empty() ? L"" : L"\\") + Name();
    if (random_.Chance(5)) path = L"\\" + path;
    return random_.Chance(5) ? path + L"\\" : path;
  }

  std::wstring Name() { return random_.PickFrom(kNames); }

  void AddFile(WriterComponent& component) {
    const FileSpec file{Path(), L"*"};
    if (component.type == VSS_CT_FILEGROUP) {
      component.files.push_back(file);
    } else {
      (random_.Chance(60) ? component.databaseFiles : component.logFiles).push_back(file);
    }
  }

  std::wstring Path() {
    if (Oddly(8)) {
      return random_.Pick<const wchar_t*>(
          {L"Z:\\none", L"z:\\NONE\\", L"\\\\server\\share", L"\\\\?\\Volume{dead}\\x", L"Y:"});
    }
    std::wstring path = random_.Chance(6) && !host().environment.empty() ? std::wstring(L"%Data%") : Folder();
    if (random_.Chance(20)) path = path.starts_with(L'%') ? path : OtherCase(path);
    return random_.Chance(10) ? path + L"\\" : path;
  }

  std::wstring Folder() {
    const unsigned disks = static_cast<unsigned>(host().disks.size());
    const Disk& disk = host().disks[random_.Chance(calm_ ? 90 : 75) ? home_ : random_.Below(disks)];
    const Volume& volume = random_.PickFrom(disk.volumes);
    const std::wstring root = volume.mountPoints.empty() ? volume.name : random_.PickFrom(volume.mountPoints);
    return root + random_.Pick<const wchar_t*>({L"data", L"Data\\logs", L"mnt", L"mnt1\\x"});
  }

  // ---- the request ----

  void MakeInput() {
    std::vector<std::wstring>& input = scenario_.inputSerialNumbers;
    for (const Disk& disk : host().disks) {
      if (disk.system ? random_.Chance(80) : Oddly(20)) continue;
      input.push_back(Oddly(10) || (disk.system && random_.Chance(50)) ? OtherCase(disk.serial) : disk.serial);
      if (Oddly(8)) input.push_back(input.back());
    }
    if (Oddly(20)) input.push_back(random_.Pick<const wchar_t*>({L"GHOST1", L"Geist \u00C4", L"tslA1"}));
    if (Oddly(4)) input.clear();
    random_.Shuffle(input);
  }

  void MakeDatabases() {
    if (scenario_.inputSerialNumbers.empty() || random_.Chance(20)) return;
    std::wstring list = L"ALL_DB";
    if (random_.Chance(65)) {
      list.clear();
      for (unsigned entries = random_.Below(7); entries > 0; --entries) list += Database() + L"\t";
      if (!list.empty() && random_.Chance(70)) list.pop_back();
    }
    host().databases = {{scenario_.inputSerialNumbers.front(), list}};
  }

  std::wstring Database() {
    if (random_.Chance(10)) return random_.Pick<const wchar_t*>({L"", L"no server", L"@", L"b@", L"@A", L"b@A@b"});
    const std::wstring known = random_.Chance(75) ? DatabaseOfAComponent() : L"";
    if (!known.empty()) return known;
    const std::wstring server = Name();
    return Name() + L"@" + server;
  }

  // The database that stands for a component whose path begins with the computer's name.
  std::wstring DatabaseOfAComponent() {
    const Writer& writer = random_.PickFrom(host().writers);
    if (writer.components.empty()) return L"";
    const WriterComponent& component = random_.PickFrom(writer.components);
    const std::wstring path = component.logicalPath.value_or(L"") + L"\\" + component.name;
    const std::size_t length = host().computerName.size();
    if (path.size() <= length || path[length] != L'\\') return L"";
    if (!SameInAnyCase(path.substr(0, length), host().computerName)) return L"";
    return path.substr(length + 1) + L"@" + host().computerName;
  }

  void MakeMessages() {
    host().messages = {{0x80070057, L"The parameter is incorrect.\r\n"}};
    if (random_.Chance(50)) host().messages[static_cast<DWORD>(kUnnamedFailure)] = L"A system text";
    if (random_.Chance(30)) {
      host().vssMessages = {{static_cast<DWORD>(VSS_E_WRITERERROR_RETRYABLE), L"Try again.\r\n"}, {1, L"Incorrect"}};
    }
  }

  void MakeRequest() {
    scenario_.requestText =
        random_.Chance(65)
            ? "writer=0,"
            : random_.Pick<const char*>({"writer=2,", "host=a,writer=4,x=1", "writer=3", "mywriters= 3abc,", "writer=1",
                                         "writer=02,writer=0", "writer=-2,"});
    if (Oddly(10)) {
      scenario_.requestText = random_.Pick<const char*>(
          {"", "a=1,b=2", "writers,z", "writer=,", "WRITER=3", "writer=99999999999,", "writer==2", ",,writer=2=3"});
    }
    scenario_.context = random_.Pick<DWORD>({0, 0, VSS_CTX_APP_ROLLBACK, VSS_VOLSNAP_ATTR_TRANSPORTABLE});
    scenario_.testPoints = Oddly(10) ? random_.Below(4) : 0;
    scenario_.partialFailures = random_.Chance(50);
    scenario_.addAnswers = Answers(40, VSS_E_OBJECT_NOT_FOUND);
    scenario_.successAnswers = Answers(40, VSS_E_BAD_STATE);
  }

  std::vector<HRESULT> Answers(std::size_t count, HRESULT failure) {
    std::vector<HRESULT> answers(count, S_OK);
    for (HRESULT& answer : answers) {
      if (Oddly(3)) answer = random_.Pick<HRESULT>({S_FALSE, failure, kUnnamedFailure});
    }
    return answers;
  }

  // ---- the writers' status ----

  void MakeCheck(Check& check) {
    failing_ = random_.Chance(40) ? 0 : 10 + random_.Below(50);
    check.counting = Rarely(E_UNEXPECTED);
    check.view = RareDelivery();
    check.freeing = Rarely(VSS_E_BAD_STATE);
    check.countingDocument = Rarely(VSS_E_BAD_STATE);
    for (const Writer& writer : host().writers) {
      if (Oddly(6)) continue;
      check.entries.push_back(MakeEntry(writer));
      if (Oddly(6)) check.entries.push_back(MakeEntry(writer));
    }
    if (random_.Chance(20)) check.entries.push_back(MakeEntry({}));
    if (Oddly(30)) random_.Shuffle(check.entries);
    for (const Writer& writer : host().writers) {
      if (random_.Chance(90)) check.document.push_back(MakeDocumentWriter(writer));
      if (Oddly(5)) check.document.push_back(MakeDocumentWriter(writer));
    }
  }

  HRESULT Rarely(HRESULT failure) { return Oddly(2) ? random_.Pick<HRESULT>({failure, S_FALSE, failure}) : S_OK; }
  Delivery RareDelivery() {
    if (!Oddly(3)) return {};
    return random_.Pick<Delivery>({{S_OK, false}, {S_FALSE, false}, {S_FALSE, true}, {E_NOINTERFACE, false}});
  }

  HRESULT Failure() {
    return random_.Pick<HRESULT>({VSS_E_WRITERERROR_RETRYABLE, VSS_E_WRITERERROR_TIMEOUT,
                                  VSS_E_WRITERERROR_NONRETRYABLE, kUnnamedFailure, S_FALSE, E_INVALIDARG});
  }

  std::optional<std::wstring> Message() {
    const wchar_t* text = random_.Pick<const wchar_t*>({nullptr, L"", L"log full", L"50% of %s\u00E9"});
    return text == nullptr ? std::nullopt : std::optional<std::wstring>(text);
  }

  StatusEntry MakeEntry(const Writer& writer) {
    StatusEntry entry;
    entry.reading = Rarely(VSS_E_OBJECT_NOT_FOUND);
    entry.instanceId = writer.instanceId;
    if (!Oddly(3)) entry.name = writer.name;
    entry.state = static_cast<VSS_WRITER_STATE>(random_.Below(18));
    if (random_.Chance(failing_)) entry.failure = random_.Chance(65) ? VSS_E_WRITERERROR_PARTIAL_FAILURE : Failure();
    entry.applicationResult = random_.Pick<HRESULT>({S_OK, 1, kUnnamedFailure});
    entry.applicationMessage = Message();
    return entry;
  }

  DocumentWriter MakeDocumentWriter(const Writer& writer) {
    DocumentWriter told;
    told.delivery = RareDelivery();
    told.identifying = Rarely(VSS_E_BAD_STATE);
    told.counting = Rarely(VSS_E_BAD_STATE);
    told.instanceId = writer.instanceId;
    for (const WriterComponent& component : writer.components) {
      if (random_.Chance(15)) continue;
      told.components.push_back(MakeDocumentComponent(component));
      if (Oddly(6)) told.components.push_back(MakeDocumentComponent(component));
    }
    if (Oddly(10)) told.components.push_back(MakeDocumentComponent({}));
    return told;
  }

  DocumentComponent MakeDocumentComponent(const WriterComponent& component) {
    DocumentComponent told;
    told.delivery = RareDelivery();
    told.view = RareDelivery();
    told.reading = Rarely(VSS_E_BAD_STATE);
    told.naming = Rarely(E_OUTOFMEMORY);
    told.locating = Rarely(VSS_E_BAD_STATE);
    told.failure = random_.Chance(50) ? S_OK : Failure();
    told.applicationResult = random_.Pick<HRESULT>({S_OK, 2, kUnnamedFailure});
    told.applicationMessage = Message();
    told.name = component.name;
    told.logicalPath = component.logicalPath;
    if (Oddly(6)) told.name = OtherCase(component.name);
    if (Oddly(3)) told.name = std::nullopt;
    return told;
  }

  Random random_;
  Scenario scenario_;
  bool calm_ = false;
  unsigned volumes_ = 0;
  int drives_ = 0;
  unsigned captions_ = 0;
  unsigned home_ = 0;
  unsigned failing_ = 0;
  std::vector<std::wstring> mountPoints_;
};

}  // namespace

Scenario RandomScenario(unsigned seed) {
  return ScenarioMaker(seed).Make();
}

}  // namespace varnel::test::reference
