#include "varnelctl/anonymise/anonymiser.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "text/ascii_case.h"
#include "text/unicode.h"
#include "varnelctl/anonymise/folding.h"
#include "varnelctl/anonymise/known_words.h"
#include "varnelctl/anonymise/markup_text.h"
#include "varnelctl/console/json.h"

namespace varnelctl {
namespace {

using varnel::Utf8ToWideLossy;
using varnel::WideToUtf8Lossy;

constexpr auto kKept = static_cast<std::size_t>(-1);

struct Shape {
  const char* kind;
  std::string_view prefix;
  std::size_t digits;
};

const Shape& ShapeOf(NameKind kind) {
  static constexpr Shape kShapes[] = {
      {"host", "HOST", 2},
      {"domain", "DOMAIN", 2},
      {"cluster", "CLUSTER", 2},
      {"instance", "INST", 2},
      {"database", "DB", 4},
      {"machine", "VM", 4},
      {"component", "COMP", 4},
      {"serial", "SERIAL", 4},
      {"target", "TARGET", 4},
      {"label", "LABEL", 4},
      {"folder", "FOLDER", 4},
      {"file", "FILE", 4},
      {"identifier", "00000000-0000-4000-8000-", 12},
  };
  return kShapes[static_cast<std::size_t>(kind)];
}

std::string Numbered(const Shape& shape, int number) {
  std::string digits = std::to_string(number);
  if (digits.size() < shape.digits) digits.insert(0, shape.digits - digits.size(), '0');
  return std::string(shape.prefix) + digits;
}

// Without what is no word at its ends.
std::string_view Core(std::string_view text) {
  while (!text.empty() && !IsWordByte(text.front())) text.remove_prefix(1);
  while (!text.empty() && !IsWordByte(text.back())) text.remove_suffix(1);
  return text;
}

// Of a file that Windows has anywhere, such as "%SystemRoot%\System32".
bool IsOfWindows(std::wstring_view path) {
  if (path.size() > 2 && path[1] == L':') path.remove_prefix(2);
  if (varnel::ascii::StartsWithIgnoringCase(path, L"%SystemDrive%")) path.remove_prefix(13);
  constexpr std::wstring_view kFolders[] = {L"\\Windows", L"%SystemRoot%", L"%windir%"};
  return std::any_of(std::begin(kFolders), std::end(kFolders), [&](std::wstring_view folder) {
    return varnel::ascii::StartsWithIgnoringCase(path, folder) &&
           (path.size() == folder.size() || path[folder.size()] == L'\\');
  });
}

// "log" of "sales.log", and a drive of "E:\".
bool StaysByItsPlace(std::string_view folded, std::size_t at, std::size_t end) {
  if (end - at == 1 && end < folded.size() && folded[end] == ':') return true;
  return at > 0 && folded[at - 1] == '.' && IsUsualExtension(folded.substr(at, end - at));
}

}  // namespace

Anonymiser::Anonymiser() {
  for (const std::string_view name : WellKnownNames()) Keep(name);
}

void Anonymiser::Remember(std::string folded, std::size_t name) {
  std::vector<std::size_t>& lengths = lengths_[folded.substr(0, WordEnd(folded, 0))];
  const auto at = std::lower_bound(lengths.begin(), lengths.end(), folded.size(), std::greater<>());
  if (at == lengths.end() || *at != folded.size()) lengths.insert(at, folded.size());
  byText_.emplace(std::move(folded), name);
}

void Anonymiser::Add(NameKind kind, std::string_view original) {
  original = Core(original);
  std::string folded = Folded(original);
  if (folded.empty() || byText_.contains(folded)) return;
  ForEachWord(folded, [this](std::string_view word) { taken_.emplace(word); });
  Remember(std::move(folded), names_.size());
  names_.push_back({kind, std::string(original), {}});
}

void Anonymiser::Add(NameKind kind, std::wstring_view original) {
  Add(kind, WideToUtf8Lossy(original));
}

void Anonymiser::AddPath(std::wstring_view folders, std::wstring_view file) {
  if (IsOfWindows(folders)) return;
  if (!file.empty()) AddFileName(WideToUtf8Lossy(file));
  if (!folders_.emplace(folders).second) return;
  const std::string path = WideToUtf8Lossy(folders);
  for (std::size_t at = 0; at < path.size(); ++at) {
    const std::size_t end = std::min(path.find_first_of("\\/", at), path.size());
    const std::string_view folder = std::string_view(path).substr(at, end - at);
    at = end;
    const bool drive = folder.size() == 2 && folder[1] == ':';
    if (!drive && !folder.starts_with("Volume{") && !IsOrdinaryName(Folded(folder))) Add(NameKind::Folder, folder);
  }
}

void Anonymiser::AddFileName(std::string_view file) {
  const std::size_t dot = file.rfind('.');
  if (dot != file.npos && IsUsualExtension(Folded(file.substr(dot + 1)))) file = file.substr(0, dot);
  for (std::size_t at = 0; at < file.size(); ++at) {
    const std::size_t end = std::min(file.find_first_of("*?", at), file.size());
    const std::string_view name = file.substr(at, end - at);
    if (!IsOrdinaryName(Folded(name))) Add(NameKind::File, name);
    at = end;
  }
}

void Anonymiser::Keep(std::string_view text) {
  std::string folded = Folded(Core(text));
  if (!folded.empty() && !byText_.contains(folded)) Remember(std::move(folded), kKept);
}

void Anonymiser::Keep(std::wstring_view text) {
  Keep(WideToUtf8Lossy(text));
}

void Anonymiser::Avoid(std::string_view text) {
  ForEachWord(text, [this](std::string_view word) {
    if (std::isdigit(static_cast<unsigned char>(word.back())) != 0) taken_.insert(Folded(word));
  });
}

void Anonymiser::ChooseReplacements() {
  for (; chosen_ < names_.size(); ++chosen_) {
    Name& name = names_[chosen_];
    const Shape& shape = ShapeOf(name.kind);
    do {
      name.replacement = Numbered(shape, ++numbers_[name.kind]);
    } while (taken_.contains(Folded(Core(name.replacement))) || byText_.contains(Folded(name.replacement)));
  }
}

std::pair<std::size_t, std::size_t> Anonymiser::FindAt(std::string_view folded, std::size_t at,
                                                       std::size_t wordEnd) const {
  const auto lengths = lengths_.find(folded.substr(at, wordEnd - at));
  if (lengths == lengths_.end()) return {0, kKept};
  for (const std::size_t length : lengths->second) {
    const std::size_t end = at + length;
    if (end > folded.size() || (end < folded.size() && IsWordByte(folded[end]) && IsWordByte(folded[end - 1])))
      continue;
    const auto found = byText_.find(folded.substr(at, length));
    if (found != byText_.end()) return {length, found->second};
  }
  return {0, kKept};
}

std::string_view Anonymiser::ReplacementFor(std::size_t name, std::string_view found, std::string& small) const {
  if (name == kKept) return found;
  const Name& original = names_[name];
  if (original.original == found) return original.replacement;
  small = Folded(original.replacement);
  return small;
}

void Anonymiser::AppendReplaced(std::string& result, std::string_view text) {
  const std::string folded = Folded(text);
  std::string small;
  for (std::size_t at = 0; at < text.size();) {
    if (!IsWordByte(text[at])) {
      result += text[at++];
      continue;
    }
    const std::size_t wordEnd = WordEnd(folded, at);
    auto [length, name] = FindAt(folded, at, wordEnd);
    if (length == 0 || StaysByItsPlace(folded, at, at + length)) {
      length = wordEnd - at;
      name = kKept;
    }
    result += ReplacementFor(name, text.substr(at, length), small);
    at += length;
  }
}

std::string Anonymiser::Replace(std::string_view text) {
  ChooseReplacements();
  std::string result;
  result.reserve(text.size() + text.size() / 8);
  AppendReplaced(result, text);
  return result;
}

std::wstring Anonymiser::Replace(std::wstring_view text) {
  return Utf8ToWideLossy(Replace(WideToUtf8Lossy(text)));
}

// Appends the value that begins at `quote` in a tag, and tells where what follows it begins.
std::size_t Anonymiser::AppendAttribute(std::string& result, std::string_view tag, std::size_t quote) {
  const std::size_t end = std::min(tag.find(tag[quote], quote + 1), tag.size());
  const std::string_view value = tag.substr(quote + 1, end - quote - 1);
  const std::string_view name = AttributeBefore(tag, quote);
  result += tag[quote];
  if (IsOpaqueAttribute(name)) {
    result += value.empty() ? "" : "YW5vbnltaXNlZA==";
  } else if (IsFormatAttribute(name)) {
    result += value;
  } else {
    std::string plain;
    AppendReplaced(plain, WithoutReferences(value));
    AppendEscaped(result, plain, tag[quote]);
  }
  if (end < tag.size()) result += tag[end];
  return std::min(end + 1, tag.size());
}

// Appends the markup that begins at `at`, and tells where what follows it begins.
std::size_t Anonymiser::AppendTag(std::string& result, std::string_view xml, std::size_t at) {
  if (xml.substr(at).starts_with("<!--")) {
    const std::size_t end = std::min(xml.find("-->", at), xml.size());
    AppendReplaced(result, xml.substr(at, end - at));
    return end;
  }
  while (at < xml.size() && xml[at] != '>') {
    const std::size_t end = std::min(xml.find_first_of("\"'>", at), xml.size());
    result += xml.substr(at, end - at);
    at = end == xml.size() || xml[end] == '>' ? end : AppendAttribute(result, xml, end);
  }
  return at;
}

// What stands between tags.
void Anonymiser::AppendText(std::string& result, std::string_view text) {
  if (text.find('&') == text.npos) return AppendReplaced(result, text);
  std::string plain;
  AppendReplaced(plain, WithoutReferences(text));
  AppendEscaped(result, plain, '\'');
}

std::string Anonymiser::ReplaceInXml(std::string_view xml) {
  ChooseReplacements();
  std::string result;
  result.reserve(xml.size() + xml.size() / 8);
  for (std::size_t at = 0; at < xml.size();) {
    const std::size_t tag = std::min(xml.find('<', at), xml.size());
    AppendText(result, xml.substr(at, tag - at));
    at = AppendTag(result, xml, tag);
  }
  return result;
}

Json Anonymiser::ReplaceInJson(Json value, const std::unordered_set<std::string>& exempt) {
  std::vector<Json*> open = {&value};
  while (!open.empty()) {
    Json& one = *open.back();
    open.pop_back();
    if (one.is_string()) {
      one = Replace(one.get_ref<const std::string&>());
    } else if (one.is_object()) {
      for (const auto& member : one.items()) {
        if (!exempt.contains(member.key())) open.push_back(&member.value());
      }
    } else if (one.is_array()) {
      for (Json& element : one) open.push_back(&element);
    }
  }
  return value;
}

Json Anonymiser::Key() {
  ChooseReplacements();
  return ArrayOf(names_, [](const Name& name) {
    return Json{{"kind", ShapeOf(name.kind).kind}, {"original", name.original}, {"replacement", name.replacement}};
  });
}

}  // namespace varnelctl
