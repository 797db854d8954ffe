// What people are told although nothing has failed.
#pragma once

#include <string>

namespace varnelctl {

struct Warning {
  std::string code;  ///< for programs: a word in camel case that stays what it is
  std::string text;  ///< one line of UTF-8
};

}  // namespace varnelctl
