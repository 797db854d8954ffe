// What a document must have before anybody looks at it: its keys, of which type each is, and what is in them.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>

namespace varnelctl::html {

enum class Type { Text, TextOrNull, Number, SecondsOrNull, Flag, Texts, Object, Objects };

struct Field;
using Shape = std::span<const Field>;

/// A key that is read.
struct Field {
  const char* key;
  Type type;
  Shape shape = {};  ///< of an object or of each object of a list
  bool optional = false;
};

inline constexpr bool kOptional = true;

/// Both throw varnel::simulator::JsonError, which has the place. \param pointer to the value.
void Expect(Type type, const nlohmann::json& value, const std::string& pointer);
void Check(const nlohmann::json& object, Shape shape, const std::string& pointer);

/// Empty for a key that is missing or no text.
std::string TextAt(const nlohmann::json& object, const char* key);

}  // namespace varnelctl::html
