// How failed expectations show the library's own kinds of text.
#pragma once

#include <gtest/gtest.h>

#include <ostream>

#include "core/shared_text.h"

/// Like the std::wstring that it reads as.
inline void PrintTo(const SharedText& text, std::ostream* out) {
  *out << testing::PrintToString(text.Get());
}
