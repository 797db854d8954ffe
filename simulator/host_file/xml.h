// Reading and writing of the service's XML: elements and attributes, no text between them.
#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "simulator/host_file/documents.h"
#include "text/guid.h"

namespace varnel::simulator {

/// A value that documents write as a word.
template <class Value>
struct XmlWord {
  std::string_view text;
  Value value;
};

inline constexpr XmlWord<bool> kXmlFlags[] = {{"yes", true}, {"no", false}};

/// One element of a document that was read; valid as long as its document. A value that is not what was asked for
/// throws DocumentError naming the element and the attribute.
class XmlElement {
 public:
  XmlElement(std::string_view name, const boost::property_tree::ptree& tree);

  const std::string& name() const { return name_; }
  std::optional<std::wstring> Text(const char* attribute) const;
  std::wstring RequiredText(const char* attribute) const;
  std::optional<GUID> Identifier(const char* attribute) const;
  GUID RequiredIdentifier(const char* attribute) const;
  std::int64_t Number(const char* attribute, std::int64_t absent = 0) const;
  bool Flag(const char* attribute, bool absent = false) const;

  template <class Value>
  Value OneOf(const char* attribute, std::span<const XmlWord<Value>> words, Value absent) const {
    const std::string* value = Find(attribute);
    if (value == nullptr) return absent;
    for (const XmlWord<Value>& word : words) {
      if (word.text == *value) return word.value;
    }
    throw Bad(attribute, *value, "is unknown");
  }

  void ForEachChild(const std::function<void(const XmlElement&)>& visit) const;

 private:
  const std::string* Find(const char* attribute) const;
  DocumentError Bad(const char* attribute, const std::string& value, const char* what) const;

  std::string name_;
  const boost::property_tree::ptree* tree_;
  const boost::property_tree::ptree* attributes_ = nullptr;
};

/// A document that was read. Throws DocumentError for anything that is not one well-formed element, is not UTF-8, or is
/// nested deeper than the service's documents ever are.
class XmlDocument {
 public:
  explicit XmlDocument(std::string_view xml);
  ~XmlDocument();
  /// The root element, which must have this name.
  XmlElement Root(std::string_view name) const;

 private:
  std::unique_ptr<boost::property_tree::ptree> tree_;
};

/// A document in the making: one line of markup.
class XmlText {
 public:
  XmlText& Raw(std::string_view markup);
  XmlText& Attribute(std::string_view name, std::string_view value);
  XmlText& Attribute(std::string_view name, std::wstring_view value);
  XmlText& Attribute(std::string_view name, const GUID& value);
  XmlText& Flag(std::string_view name, bool value);
  XmlText& Number(std::string_view name, std::int64_t value);

  std::string Take() { return std::move(text_); }

 private:
  void Escape(char c);

  std::string text_;
};

}  // namespace varnel::simulator
