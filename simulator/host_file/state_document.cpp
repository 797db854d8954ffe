#include "simulator/host_file/state_document.h"

#include <algorithm>
#include <charconv>
#include <concepts>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "simulator/host_file/json_reader.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

constexpr DWORD kVersion = 1;

// The host that a state is of. Its shadow copies lie on its disks.
struct Fingerprint {
  std::wstring computerName;
  std::vector<std::wstring> disks;  // number, serial number and volumes
};

struct EndedSession {
  DWORD session = 0;
  std::wstring targetName;
};

struct Document {
  DWORD version = kVersion;
  Fingerprint host;
  std::vector<EndedSession> endedSessions;
  ServiceState service;
  std::vector<LoggedEvent> events;
};

// What each of them consists of, for reading and for writing.

template <class Fields, class Value>
concept ListedAs = std::same_as<std::remove_const_t<Fields>, Value>;

void ListFields(auto& fields, ListedAs<ShadowCopy> auto& copy) {
  fields("id", copy.id)("setId", copy.setId)("providerId", copy.providerId);
  fields("owner", copy.owner)("attributes", copy.attributes)("timestamp", copy.timestamp);
  fields("copiesInSet", copy.copiesInSet)("originatingMachine", copy.originatingMachine);
  fields("originalVolume", copy.originalVolume)("originalSerial", copy.originalSerial);
  fields("exposedName", copy.exposedName)("exposedPath", copy.exposedPath);
  fields("device", copy.device)("diskNumber", copy.diskNumber)("serial", copy.serial);
  fields("ownDisk", copy.ownDisk)("surfaced", copy.surfaced)("masked", copy.masked)("forgotten", copy.forgotten);
}

void ListFields(auto& fields, ListedAs<PlannedCopy> auto& copy) {
  fields("id", copy.id)("providerId", copy.provider.id)("volume", copy.volume);
}

void ListFields(auto& fields, ListedAs<OpenSet> auto& set) {
  fields("session", set.session)("id", set.id)("context", set.context)("copies", set.copies);
}

void ListFields(auto& fields, ListedAs<KnownSession> auto& session) {
  fields("id", session.id)("process", session.process)("setUnderWay", session.setUnderWay);
  fields("writers", session.writers);
}

void ListFields(auto& fields, ListedAs<EndedSession> auto& session) {
  fields("session", session.session)("targetName", session.targetName);
}

void ListFields(auto& fields, ListedAs<LoggedEvent> auto& event) {
  fields("channel", event.channel)("source", event.source)("id", event.id)("level", event.level)("time", event.time);
  fields("computer", event.computer)("texts", event.texts)("data", event.data)("message", event.message);
}

void ListFields(auto& fields, ListedAs<Fingerprint> auto& host) {
  fields("computerName", host.computerName)("disks", host.disks);
}

void ListFields(auto& fields, ListedAs<Document> auto& document) {
  auto& service = document.service;
  fields("version", document.version)("host", document.host)("endedSessions", document.endedSessions);
  fields("devices", service.devices)("imported", service.imported)("sessions", service.sessions);
  fields("openSet", service.openSet)("copies", service.copies);
  fields.IfAny("events", document.events);
}

// Straight into the text: by way of a document of nlohmann's a change among a thousand copies takes 10 ms instead of 4.
class FieldWriter {
 public:
  explicit FieldWriter(std::string& text) : text_(text) {}

  template <class Value>
  FieldWriter& operator()(std::string_view name, const Value& value) {
    text_ += text_.back() == '{' ? "\"" : ",\"";
    text_.append(name) += "\":";
    Put(value);
    return *this;
  }

  // A list that has no member while it is empty.
  template <class List>
  void IfAny(std::string_view name, const List& list) {
    if (!list.empty()) (*this)(name, list);
  }

  void Put(bool value) { text_ += value ? "true" : "false"; }
  void Put(const GUID& id) { Quote(FormatGuid(id)); }
  void Put(const std::wstring& text) { Quote(text); }
  // JSON readers lose digits of numbers beyond 53 bits.
  void Put(VSS_TIMESTAMP time) { text_ += '"' + std::to_string(time) + '"'; }
  template <class Number>
  requires(std::is_integral_v<Number> || std::is_enum_v<Number>) void Put(Number number) {
    static_assert(sizeof number == sizeof(DWORD));
    text_ += std::to_string(static_cast<DWORD>(number));
  }
  template <class Value>
  void Put(const std::optional<Value>& value) {
    if (value) {
      Put(*value);
    } else {
      text_ += "null";
    }
  }
  template <class Value>
  requires std::is_class_v<Value>
  void Put(const Value& value) {
    if constexpr (requires { value.begin(); }) {
      text_ += '[';
      for (const auto& item : value) {
        if (text_.back() != '[') text_ += ',';
        Put(item);
      }
      text_ += ']';
    } else {
      text_ += '{';
      ListFields(*this, value);
      text_ += '}';
    }
  }

 private:
  void Quote(std::wstring_view text) {
    text_ += '"';
    if (std::all_of(text.begin(), text.end(), [](wchar_t c) { return c < 0x80; })) {
      for (const wchar_t c : text) QuoteByte(static_cast<char>(c));
    } else {
      for (const char c : WideToUtf8Lossy(text)) QuoteByte(c);
    }
    text_ += '"';
  }
  void QuoteByte(char c) {
    if (static_cast<unsigned char>(c) < 0x20) {
      text_.append("\\u00").append(1, "01"[c >> 4]).append(1, "0123456789abcdef"[c & 0xF]);
      return;
    }
    if (c == '"' || c == '\\') text_ += '\\';
    text_ += c;
  }

  std::string& text_;
};

// An object's members: each is there, and there are no others.
class FieldReader {
 public:
  explicit FieldReader(const JsonNode& node) : node_(node), members_(node.Members()) {}

  template <class Value>
  FieldReader& operator()(std::string_view name, Value& value) {
    const auto found =
        std::find_if(members_.begin(), members_.end(), [&](const auto& member) { return member.first == name; });
    if (found == members_.end()) node_.Fail("missing key \"" + std::string(name) + "\"");
    Get(found->second, value);
    members_.erase(found);
    return *this;
  }
  template <class List>
  void IfAny(std::string_view name, List& list) {
    if (node_.HasMember(name)) (*this)(name, list);
  }
  void End() const {
    if (!members_.empty()) members_.front().second.Fail("unknown key");
  }

 private:
  static void Get(const JsonNode& node, bool& value) { value = node.Flag(); }
  static void Get(const JsonNode& node, GUID& id) { id = node.Guid(); }
  static void Get(const JsonNode& node, std::wstring& text) { text = node.Text(); }
  static void Get(const JsonNode& node, VSS_TIMESTAMP& time) {
    const std::string& digits = node.Utf8();
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), time);
    if (error != std::errc() || end != digits.data() + digits.size()) node.Refuse("is no whole number");
  }
  template <class Number>
  requires(std::is_integral_v<Number> || std::is_enum_v<Number>) static void Get(const JsonNode& node, Number& number) {
    number = static_cast<Number>(node.Number());
  }
  template <class Value>
  static void Get(const JsonNode& node, std::optional<Value>& value) {
    if (!node.IsNull()) Get(node, value.emplace());
  }
  template <class Value>
  static void Get(const JsonNode& node, Value& value) {
    if constexpr (requires { value.begin(); }) {
      for (const JsonNode& element : node.Elements()) Get(element, value.emplace_back());
    } else {
      FieldReader fields(node);
      ListFields(fields, value);
      fields.End();
    }
  }

  const JsonNode& node_;
  std::vector<std::pair<std::string, JsonNode>> members_;
};

Fingerprint FingerprintOf(const HostModel& model) {
  Fingerprint host{model.computerName, {}};
  for (const Disk& disk : model.disks) {
    std::wstring& text = host.disks.emplace_back(std::to_wstring(disk.number) + L" " + disk.serial);
    for (const Volume& volume : disk.volumes) text += L" " + volume.name;
  }
  return host;
}

void ExpectSame(const std::wstring& found, const std::wstring& own, const std::string& pointer) {
  if (found == own) return;
  throw JsonError(pointer, "the state is of another host: \"" + WideToUtf8Lossy(found) + "\", and this one has \"" +
                               WideToUtf8Lossy(own) + "\"");
}

void ExpectHost(const Fingerprint& found, const HostModel& model) {
  const Fingerprint own = FingerprintOf(model);
  ExpectSame(found.computerName, own.computerName, "/host/computerName");
  for (std::size_t i = 0; i < std::max(found.disks.size(), own.disks.size()); ++i) {
    const auto at = [i](const std::vector<std::wstring>& disks) { return i < disks.size() ? disks[i] : L"no disk"; };
    ExpectSame(at(found.disks), at(own.disks), "/host/disks/" + std::to_string(i));
  }
}

std::set<std::size_t> SessionsOf(const std::vector<EndedSession>& ended, const HostModel& model) {
  std::set<std::size_t> sessions;
  for (std::size_t i = 0; i < ended.size(); ++i) {
    const auto& [session, target] = ended[i];
    if (session >= model.iscsiSessions.size() || model.iscsiSessions[session].targetName != target) {
      throw JsonError("/endedSessions/" + std::to_string(i), "the host has no such iSCSI session");
    }
    sessions.insert(session);
  }
  return sessions;
}

// A set under construction remembers its providers by their identifiers.
void ResolveProviders(OpenSet& set, const HostModel& model) {
  for (PlannedCopy& copy : set.copies) {
    const auto found = std::find_if(model.providers.begin(), model.providers.end(),
                                    [&](const Provider& provider) { return provider.id == copy.provider.id; });
    if (found != model.providers.end()) copy.provider = *found;
  }
}

}  // namespace

std::string FormatHostState(HostState state, const HostModel& model) {
  Document document{kVersion, FingerprintOf(model), {}, std::move(state.service), std::move(state.newEvents)};
  for (const std::size_t session : state.endedSessions) {
    document.endedSessions.push_back({static_cast<DWORD>(session), model.iscsiSessions[session].targetName});
  }
  std::string text;
  FieldWriter(text).Put(document);
  return text + "\n";
}

HostState ParseHostState(const std::string& text, const HostModel& model) {
  const nlohmann::json json = ParseJson(text);
  const JsonNode root(json, "");
  for (const auto& [key, node] : root.Members()) {
    if (key == "version" && node.Number() != kVersion) {
      node.Fail("a state of version " + std::to_string(node.Number()) + ", and this program has version " +
                std::to_string(kVersion));
    }
  }
  Document document;
  FieldReader fields(root);
  ListFields(fields, document);
  fields.End();
  ExpectHost(document.host, model);
  if (document.service.openSet) ResolveProviders(*document.service.openSet, model);
  return {std::move(document.service), SessionsOf(document.endedSessions, model), std::move(document.events)};
}

}  // namespace varnel::simulator
