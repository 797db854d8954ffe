#include "varnelctl/report/html/shape.h"

#include <nlohmann/json.hpp>

#include "simulator/host_file/json_reader.h"

namespace varnelctl::html {
namespace {

using nlohmann::json;
using varnel::simulator::JsonError;

constexpr double kMostSeconds = 1e9;  // thirty years

const char* NameOf(Type type) {
  switch (type) {
    case Type::Text:
      return "string";
    case Type::TextOrNull:
      return "string or null";
    case Type::Number:
      return "whole number";
    case Type::SecondsOrNull:
      return "number of seconds or null";
    case Type::Flag:
      return "boolean";
    case Type::Object:
      return "object";
    default:
      return "array";
  }
}

bool Is(Type type, const json& value) {
  switch (type) {
    case Type::Text:
      return value.is_string();
    case Type::TextOrNull:
      return value.is_string() || value.is_null();
    case Type::Number:
      return value.is_number_integer();
    case Type::SecondsOrNull:
      return value.is_null() || (value.is_number() && value >= 0 && value <= kMostSeconds);
    case Type::Flag:
      return value.is_boolean();
    case Type::Object:
      return value.is_object();
    default:
      return value.is_array();
  }
}

}  // namespace

void Expect(Type type, const json& value, const std::string& pointer) {
  if (Is(type, value)) return;
  throw JsonError(pointer, std::string("expected ") + NameOf(type) + ", found " + value.type_name());
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the shapes are
void Check(const json& object, Shape shape, const std::string& pointer) {
  for (const Field& field : shape) {
    const auto found = object.find(field.key);
    const std::string place = pointer + "/" + field.key;
    if (found == object.end()) {
      if (field.optional) continue;
      throw JsonError(place, "the key is missing");
    }
    Expect(field.type, *found, place);
    if (field.type == Type::Object) Check(*found, field.shape, place);
    if (field.type != Type::Texts && field.type != Type::Objects) continue;
    const Type ofElements = field.type == Type::Texts ? Type::Text : Type::Object;
    for (std::size_t i = 0; i < found->size(); ++i) {
      Expect(ofElements, (*found)[i], place + "/" + std::to_string(i));
      Check((*found)[i], field.shape, place + "/" + std::to_string(i));
    }
  }
}

std::string TextAt(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

}  // namespace varnelctl::html
