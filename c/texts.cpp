#include "c/texts.h"

#include "text/unicode.h"

namespace varnel::c {

const char* Texts::Of(const std::wstring& text) {
  return text.empty() ? "" : Of(&text, text);
}

const char* const* Texts::Of(const std::set<std::wstring>& list) {
  auto entry = lists_.find(&list);
  if (entry == lists_.end()) {
    std::vector<const char*> texts;
    texts.reserve(list.size());
    for (const std::wstring& text : list) texts.push_back(Of(text));
    entry = lists_.emplace(&list, std::move(texts)).first;
  }
  return entry->second.data();
}

const char* Texts::Of(const void* key, std::wstring_view text) {
  auto entry = texts_.find(key);
  if (entry == texts_.end()) entry = texts_.emplace(key, WideToUtf8Lossy(text)).first;
  return entry->second.c_str();
}

void Texts::Clear() noexcept {
  texts_.clear();
  lists_.clear();
}

std::vector<const char*> PointersTo(const std::vector<std::string>& texts) {
  std::vector<const char*> pointers;
  pointers.reserve(texts.size());
  for (const std::string& text : texts) pointers.push_back(text.c_str());
  return pointers;
}

}  // namespace varnel::c
