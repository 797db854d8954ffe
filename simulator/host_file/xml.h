// Reading and writing of the service's XML: elements and attributes, no text between them.
#pragma once

#include <boost/property_tree/ptree_fwd.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/host_file/documents.h"
#include "simulator/host_file/words.h"
#include "text/guid.h"

namespace varnel::simulator {

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

  template <class Value, std::size_t n>
  Value OneOf(const char* attribute, const Word<Value> (&words)[n], Value absent) const {
    const std::string* text = Find(attribute);
    if (text == nullptr) return absent;
    const std::optional<Value> value = ValueOf(words, *text);
    if (!value) throw Bad(attribute, *text, "is unknown");
    return *value;
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
  /// Nothing for text that is not there.
  XmlText& Optional(std::string_view name, const std::optional<std::wstring>& value);
  XmlText& Flag(std::string_view name, bool value);
  XmlText& Number(std::string_view name, std::int64_t value);

  std::string Take() { return std::move(text_); }

 private:
  void Escape(char c);

  std::string text_;
};

}  // namespace varnel::simulator
