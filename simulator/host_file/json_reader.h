// JSON read strictly: every value has the type that is asked for, every key is known and stands once, and an error
// names the place as a JSON pointer.
#pragma once

#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/win32.h"

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

  template <class Value>
  Value OneOf(std::span<const std::pair<std::string_view, Value>> words) const {
    for (const auto& [word, value] : words) {
      if (word == Utf8()) return value;
    }
    std::string known;
    for (const auto& [word, value] : words) known.append(known.empty() ? "" : ", ").append(word);
    Fail("\"" + Utf8() + "\" is none of " + known);
  }

 private:
  friend class JsonObject;

  JsonNode Child(const std::string& key, const nlohmann::json& value) const;
  void Expect(bool matches, const char* wanted) const;

  const nlohmann::json* value_;
  std::string pointer_;
};

/// An object whose keys are all known.
class JsonObject {
 public:
  JsonObject(JsonNode node, std::initializer_list<std::string_view> keys);

  const JsonNode& node() const { return node_; }
  bool Has(std::string_view key) const { return Find(key).has_value(); }
  std::optional<JsonNode> Find(std::string_view key) const;
  /// A key that must be there.
  JsonNode At(std::string_view key) const;

 private:
  JsonNode node_;
};

}  // namespace varnel::simulator
