// An alert record taken apart at its conversions, and formatted with arguments that are known only at run time.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "core/alerts.h"
#include "core/vss_call.h"

namespace varnel::test {

enum class AlertValue { text, decimal, hexadecimal };

struct AlertParts {
  std::vector<std::string> literals;  ///< one more than values; the tag is part of the first that it follows
  std::vector<AlertValue> values;     ///< after the tag

  bool HasText() const { return std::find(values.begin(), values.end(), AlertValue::text) != values.end(); }
  /// The record with these values, one each, whatever their length.
  std::string Join(const std::vector<std::string>& texts) const {
    std::string record = literals.front();
    for (std::size_t i = 0; i < values.size(); ++i) record += texts.at(i) + literals[i + 1];
    return record;
  }
};

inline AlertParts PartsOf(const AlertRecord& record) {
  AlertParts parts{{""}, {}};
  bool tagPending = record.tag != nullptr;
  std::string_view format = record.format;
  while (!format.empty()) {
    const std::size_t percent = format.find('%');
    parts.literals.back() += format.substr(0, percent);
    if (percent == format.npos) break;
    format.remove_prefix(percent + 1);
    const std::size_t type = format.find_first_of("sSdx");
    const char kind = format.at(type);
    format.remove_prefix(type + 1);
    if (tagPending) {
      parts.literals.back() += record.tag;
      tagPending = false;
      continue;
    }
    parts.literals.emplace_back();
    parts.values.push_back(kind == 'd'   ? AlertValue::decimal
                           : kind == 'x' ? AlertValue::hexadecimal
                                         : AlertValue::text);
  }
  return parts;
}

/// Calls `call` with the arguments as the list that the functions of core/alerts.h take.
template <class Call>
auto WithArguments(std::span<const FormatArgument> a, Call call) {
  using List = std::initializer_list<FormatArgument>;
  switch (a.size()) {
    case 0:
      return call(List{});
    case 1:
      return call(List{a[0]});
    case 2:
      return call(List{a[0], a[1]});
    case 3:
      return call(List{a[0], a[1], a[2]});
    case 4:
      return call(List{a[0], a[1], a[2], a[3]});
    case 5:
      return call(List{a[0], a[1], a[2], a[3], a[4]});
    default:
      throw std::invalid_argument("no record takes so many arguments");
  }
}

inline std::string FormatAlertWith(const AlertRecord& record, std::span<const FormatArgument> arguments) {
  return WithArguments(arguments, [&](auto list) { return FormatAlert(record, list); });
}

inline void WriteAlertWith(const AlertRecord& record, std::span<const FormatArgument> arguments,
                           std::string& errorDetails) {
  WithArguments(arguments, [&](auto list) { WriteAlert(record, list, errorDetails); });
}

}  // namespace varnel::test
