#include "simulator/host_file/json_reader.h"

#include <algorithm>

#include "simulator/machine/result_names.h"
#include "text/guid.h"
#include "text/unicode.h"

namespace varnel::simulator {
namespace {

using Json = nlohmann::json;

std::string EscapeKey(std::string_view key) {
  std::string escaped;
  for (const char c : key) {
    if (c == '~') {
      escaped += "~0";
    } else if (c == '/') {
      escaped += "~1";
    } else {
      escaped += c;
    }
  }
  return escaped;
}

// Builds the document and refuses the second of two equal keys, which the library would let win.
class StrictBuilder final : public nlohmann::json_sax<Json> {
 public:
  explicit StrictBuilder(Json& root) : root_(root) {}

  bool null() override { return Add(nullptr); }
  bool boolean(bool value) override { return Add(value); }
  bool number_integer(number_integer_t value) override { return Add(value); }
  bool number_unsigned(number_unsigned_t value) override { return Add(value); }
  bool number_float(number_float_t value, const string_t&) override { return Add(value); }
  bool string(string_t& value) override { return Add(std::move(value)); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override { return Open(Json::object()); }
  bool start_array(std::size_t) override { return Open(Json::array()); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }

  bool key(string_t& key) override {
    Frame& frame = open_.back();
    frame.key = std::move(key);
    if (frame.container->contains(frame.key)) throw JsonError(Pointer(), "the key stands twice");
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const Json::exception& error) override {
    std::string_view text = error.what();
    constexpr std::string_view kPlace = "parse error at ";
    const std::size_t place = text.find(kPlace);
    const std::size_t start = place == std::string_view::npos ? text.find("] ") + 2 : place + kPlace.size();
    throw JsonError("", "no JSON: " + std::string(text.substr(start)));
  }

 private:
  struct Frame {
    Json* container;
    std::string key;
  };

  Json* Place(Json value) {
    if (open_.empty()) {
      root_ = std::move(value);
      return &root_;
    }
    Json& container = *open_.back().container;
    if (container.is_object()) return &(container[open_.back().key] = std::move(value));
    container.push_back(std::move(value));
    return &container.back();
  }

  bool Add(Json value) {
    Place(std::move(value));
    return true;
  }

  bool Open(Json container) {
    Json* placed = Place(std::move(container));
    open_.push_back({placed, {}});
    return true;
  }

  bool Close() {
    open_.pop_back();
    return true;
  }

  std::string Pointer() const {
    std::string pointer;
    for (const Frame& frame : open_) {
      const bool list = frame.container->is_array();
      pointer += "/" + (list ? std::to_string(frame.container->size() - 1) : EscapeKey(frame.key));
    }
    return pointer;
  }

  Json& root_;
  std::vector<Frame> open_;
};

}  // namespace

Json ParseJson(std::string_view text) {
  Json document;
  StrictBuilder builder(document);
  Json::sax_parse(text.begin(), text.end(), &builder, Json::input_format_t::json, true, true);
  return document;
}

void JsonNode::Expect(bool matches, const char* wanted) const {
  if (!matches) Fail(std::string("expected ") + wanted + ", found " + value_->type_name());
}

JsonNode JsonNode::Child(const std::string& key, const Json& value) const {
  return JsonNode(value, pointer_ + "/" + EscapeKey(key));
}

const std::string& JsonNode::Utf8() const {
  Expect(value_->is_string(), "string");
  const std::string& text = value_->get_ref<const std::string&>();
  if (text.find('\0') != std::string::npos) Fail("the text contains a NUL character");
  return text;
}

std::wstring JsonNode::Text() const {
  return Utf8ToWide(Utf8());
}

bool JsonNode::Flag() const {
  Expect(value_->is_boolean(), "boolean");
  return value_->get<bool>();
}

DWORD JsonNode::Number(DWORD largest) const {
  Expect(value_->is_number(), "number");
  if (!value_->is_number_unsigned() || value_->get<std::uint64_t>() > largest) {
    Fail("expected a whole number from 0 to " + std::to_string(largest));
  }
  return value_->get<DWORD>();
}

GUID JsonNode::Guid() const {
  const std::optional<GUID> guid = TryParseGuid<GUID>(std::string_view(Utf8()));
  if (!guid) Refuse("is no GUID in braces");
  return *guid;
}

DWORD JsonNode::Result() const {
  if (!IsText()) return Number();
  const std::optional<DWORD> result = ParseResult(Utf8());
  if (!result) Refuse("is no result name, \"0x\" number or decimal code" + DidYouMean(Utf8(), ResultNames()));
  return *result;
}

std::vector<JsonNode> JsonNode::Elements() const {
  Expect(value_->is_array(), "array");
  std::vector<JsonNode> elements;
  elements.reserve(value_->size());
  for (std::size_t i = 0; i < value_->size(); ++i) elements.push_back(Child(std::to_string(i), (*value_)[i]));
  return elements;
}

std::vector<std::pair<std::string, JsonNode>> JsonNode::Members() const {
  Expect(value_->is_object(), "object");
  std::vector<std::pair<std::string, JsonNode>> members;
  for (const auto& [key, value] : value_->items()) {
    const JsonNode member = Child(key, value);
    if (key.find('\0') != std::string::npos) member.Fail("the key contains a NUL character");
    members.emplace_back(key, member);
  }
  return members;
}

bool JsonNode::HasMember(std::string_view key) const {
  const auto members = Members();
  return std::any_of(members.begin(), members.end(), [&](const auto& member) { return member.first == key; });
}

void UniqueNames::Add(std::wstring_view name, const JsonNode& node) {
  if (!names_.emplace(name).second) node.Fail("duplicate " + what_ + " \"" + WideToUtf8(name) + "\"");
}

JsonObject::JsonObject(JsonNode node, std::initializer_list<std::string_view> keys) : node_(std::move(node)) {
  for (const auto& [key, member] : node_.Members()) {
    if (std::find(keys.begin(), keys.end(), key) != keys.end()) continue;
    member.Fail("unknown key" + DidYouMean(key, std::vector<std::string_view>(keys)));
  }
}

std::optional<JsonNode> JsonObject::Find(std::string_view key) const {
  const auto found = node_.value_->find(key);
  if (found == node_.value_->end()) return std::nullopt;
  return node_.Child(std::string(key), *found);
}

std::vector<std::pair<std::string, JsonNode>> JsonObject::MembersOf(std::string_view key) const {
  const std::optional<JsonNode> found = Find(key);
  return found ? found->Members() : std::vector<std::pair<std::string, JsonNode>>();
}

JsonNode JsonObject::At(std::string_view key) const {
  std::optional<JsonNode> found = Find(key);
  if (!found) node_.Fail("missing key \"" + std::string(key) + "\"");
  return std::move(*found);
}

}  // namespace varnel::simulator
