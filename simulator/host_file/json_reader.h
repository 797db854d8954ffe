// JSON read strictly: every value has the type that is asked for, every key is known and stands once, and an error
// names the place as a JSON pointer.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/win32.h"
#include "simulator/host_file/words.h"
#include "text/ascii_case.h"
#include "text/nearest_name.h"

namespace varnel::simulator {

class JsonError : public std::runtime_error {
 public:
  JsonError(std::string pointer, const std::string& reason)
      : std::runtime_error(reason), pointer_(std::move(pointer)) {}
  const std::string& pointer() const { return pointer_; }

 private:
  std::string pointer_;
};

/// Comments are allowed. Throws JsonError on text that is no JSON, with line and column, and on a key that stands
/// twice.
nlohmann::json ParseJson(std::string_view text);

/// A value and where it stands. Borrows the value. Every accessor throws JsonError when the value is something else.
class JsonNode {
 public:
  JsonNode(const nlohmann::json& value, std::string pointer) : value_(&value), pointer_(std::move(pointer)) {}

  [[noreturn]] void Fail(const std::string& reason) const { throw JsonError(pointer_, reason); }

  /// Fails with the text of this value in quotation marks and then `why`.
  [[noreturn]] void Refuse(const std::string& why) const { Fail("\"" + Utf8() + "\" " + why); }

  bool IsNull() const { return value_->is_null(); }
  bool IsText() const { return value_->is_string(); }
  const std::string& Utf8() const;
  std::wstring Text() const;
  bool Flag() const;
  DWORD Number(DWORD largest = 0xFFFFFFFF) const;
  GUID Guid() const;
  std::vector<JsonNode> Elements() const;
  /// The members of an object whose keys are data, by key.
  std::vector<std::pair<std::string, JsonNode>> Members() const;
  /// Whether an object has this key.
  bool HasMember(std::string_view key) const;

  template <class Value, std::size_t n>
  Value OneOf(const Word<Value> (&words)[n]) const {
    if (const std::optional<Value> value = ValueOf(words, Utf8())) return *value;
    std::string known;
    std::vector<std::string_view> texts;
    for (const Word<Value>& word : words) {
      known.append(known.empty() ? "" : ", ").append(word.text);
      texts.push_back(word.text);
    }
    Refuse("is none of " + known + DidYouMean(Utf8(), texts));
  }
  /// A result's name, "0x" number or decimal code.
  DWORD Result() const;

  void ReadTo(std::wstring& target) const { target = Text(); }
  void ReadTo(std::optional<std::wstring>& target) const { target = Text(); }
  void ReadTo(bool& target) const { target = Flag(); }
  void ReadTo(DWORD& target) const { target = Number(); }
  void ReadTo(int& target) const { target = static_cast<int>(Number(kLargestCount)); }

 private:
  friend class JsonObject;

  static constexpr DWORD kLargestCount = 0x7FFFFFFF;

  JsonNode Child(const std::string& key, const nlohmann::json& value) const;
  void Expect(bool matches, const char* wanted) const;

  const nlohmann::json* value_;
  std::string pointer_;
};

/// Names that may stand once on the host, in whatever case.
class UniqueNames {
 public:
  explicit UniqueNames(std::string what) : what_(std::move(what)) {}
  void Add(std::wstring_view name, const JsonNode& node);

 private:
  std::string what_;
  std::set<std::wstring, ascii::LessIgnoringCase> names_;
};

/// An object whose keys are all known.
class JsonObject {
 public:
  JsonObject(JsonNode node, std::initializer_list<std::string_view> keys);

  bool Has(std::string_view key) const { return Find(key).has_value(); }
  std::optional<JsonNode> Find(std::string_view key) const;
  /// A key that must be there.
  JsonNode At(std::string_view key) const;

  /// Sets what is read where the key is there and leaves it as it is elsewhere.
  template <class Value>
  const JsonObject& Read(std::string_view key, Value& target) const {
    if (const auto node = Find(key)) node->ReadTo(target);
    return *this;
  }
  template <class Value, std::size_t n>
  const JsonObject& Read(std::string_view key, Value& target, const Word<Value> (&words)[n]) const {
    if (const auto node = Find(key)) target = node->OneOf(words);
    return *this;
  }
  /// Appends what `make` makes of each element.
  template <class Item, class Make>
  const JsonObject& ReadList(std::string_view key, std::vector<Item>& list, Make&& make) const {
    if (const auto node = Find(key)) {
      for (const JsonNode& element : node->Elements()) list.push_back(make(element));
    }
    return *this;
  }
  /// The members of an object that may be absent.
  std::vector<std::pair<std::string, JsonNode>> MembersOf(std::string_view key) const;

 private:
  JsonNode node_;
};

}  // namespace varnel::simulator
