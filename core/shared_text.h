// Wide text that many records have in common: thousands of files lie in few directories on few volumes.
#pragma once

#include <concepts>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

/// Immutable wide text; copies share it. Reads like a std::wstring; empty text holds nothing.
class SharedText {
 public:
  static constexpr std::size_t npos = std::wstring::npos;

  SharedText() noexcept = default;
  SharedText(std::wstring text)
      : text_(text.empty() ? nullptr : std::make_shared<const std::wstring>(std::move(text))) {}
  SharedText(const wchar_t* text) : SharedText(std::wstring(text)) {}
  explicit SharedText(std::wstring_view text) : SharedText(std::wstring(text)) {}
  /// Shares what it is given, which may be a part of something larger.
  explicit SharedText(std::shared_ptr<const std::wstring> text) noexcept
      : text_(text == nullptr || text->empty() ? nullptr : std::move(text)) {}

  const std::wstring& Get() const noexcept {
    static const std::wstring empty;
    return text_ ? *text_ : empty;
  }
  operator const std::wstring&() const noexcept { return Get(); }
  operator std::wstring_view() const noexcept { return Get(); }

  bool empty() const noexcept { return text_ == nullptr; }
  std::size_t size() const noexcept { return Get().size(); }
  const wchar_t* c_str() const noexcept { return Get().c_str(); }
  wchar_t operator[](std::size_t at) const noexcept { return Get()[at]; }
  wchar_t front() const noexcept { return Get().front(); }
  wchar_t back() const noexcept { return Get().back(); }
  template <class Text>
  bool starts_with(const Text& text) const noexcept {
    return Get().starts_with(text);
  }
  template <class Text>
  bool ends_with(const Text& text) const noexcept {
    return Get().ends_with(text);
  }
  template <class Text>
  std::size_t find(const Text& text, std::size_t from = 0) const noexcept {
    return Get().find(text, from);
  }
  std::wstring substr(std::size_t from = 0, std::size_t count = npos) const { return Get().substr(from, count); }
  void clear() noexcept { text_.reset(); }

  friend bool operator==(const SharedText& a, const SharedText& b) noexcept {
    return a.text_ == b.text_ || a.Get() == b.Get();
  }
  friend bool operator==(const SharedText& a, const std::wstring& b) noexcept { return a.Get() == b; }
  friend bool operator==(const SharedText& a, std::wstring_view b) noexcept { return a.Get() == b; }
  friend bool operator==(const SharedText& a, const wchar_t* b) noexcept { return a.Get() == b; }

  template <class Text>
  requires std::convertible_to<const Text&, std::wstring_view>
  friend std::wstring operator+(const SharedText& a, const Text& b) {
    return std::wstring(a.Get()).append(std::wstring_view(b));
  }
  template <class Text>
  requires(std::convertible_to<const Text&, std::wstring_view> && !std::same_as<Text, SharedText>) friend std::wstring
  operator+(const Text& a, const SharedText& b) {
    return std::wstring(std::wstring_view(a)).append(b.Get());
  }

 private:
  std::shared_ptr<const std::wstring> text_;
};
