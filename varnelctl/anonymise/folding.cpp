#include "varnelctl/anonymise/folding.h"

namespace varnelctl {
namespace {

// Characters of two bytes in UTF-8; each small letter has as many as its capital.
unsigned SmallLetter(unsigned c) {
  const auto within = [c](unsigned first, unsigned last) { return c >= first && c <= last; };
  if ((within(0xC0, 0xDE) && c != 0xD7) || within(0x391, 0x3A9) || within(0x410, 0x42F)) return c + 0x20;
  if (within(0x400, 0x40F)) return c + 0x50;
  if (c == 0x130 || c == 0x131) return c;
  if (within(0x100, 0x137) || within(0x14A, 0x177)) return c | 1;
  if (within(0x139, 0x148)) return c + (c & 1);
  return c;
}

}  // namespace

std::string Folded(std::string_view utf8) {
  std::string folded(utf8);
  for (std::size_t i = 0; i < folded.size(); ++i) {
    const auto lead = static_cast<unsigned char>(folded[i]);
    if (lead >= 'A' && lead <= 'Z') folded[i] = static_cast<char>(lead + ('a' - 'A'));
    if (lead < 0xC3 || lead > 0xD0 || i + 1 == folded.size()) continue;
    const auto trail = static_cast<unsigned char>(folded[i + 1]);
    if ((trail & 0xC0) != 0x80) continue;
    const unsigned small = SmallLetter((lead & 0x1Fu) << 6 | (trail & 0x3Fu));
    folded[i] = static_cast<char>(0xC0 | small >> 6);
    folded[++i] = static_cast<char>(0x80 | (small & 0x3F));
  }
  return folded;
}

}  // namespace varnelctl
