#include "simulator/host_file/xml.h"

#include <algorithm>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <charconv>
#include <sstream>
#include <vector>

#include "text/unicode.h"

namespace varnel::simulator {
namespace {

// One pass over the markup before the real parser sees it: that parser recurses per level and does not compare the
// names of start and end tags.
class NestingCheck {
 public:
  explicit NestingCheck(std::string_view xml) : xml_(xml) {}

  void Run() {
    for (at_ = xml_.find('<'); at_ != std::string_view::npos; at_ = xml_.find('<', at_)) Markup();
    if (!open_.empty()) Fail("<" + std::string(open_.back()) + "> is not closed");
  }

 private:
  static constexpr std::size_t kDeepest = 64;

  [[noreturn]] void Fail(const std::string& reason) const {
    const std::string_view before = xml_.substr(0, at_);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    throw DocumentError("not XML: line " + std::to_string(line) + ": " + reason);
  }

  void Markup() {
    const std::string_view rest = xml_.substr(at_);
    if (rest.starts_with("<!--")) return SkipPast("-->");
    if (rest.starts_with("<![CDATA[")) return SkipPast("]]>");
    if (rest.starts_with("<?")) return SkipPast("?>");
    if (rest.starts_with("<!")) return SkipPast(">");
    rest.starts_with("</") ? Close() : Open();
  }

  void SkipPast(std::string_view end) {
    const std::size_t found = xml_.find(end, at_);
    if (found == std::string_view::npos) Fail("unexpected end of data");
    at_ = found + end.size();
  }

  static std::string_view NameIn(std::string_view text) { return text.substr(0, text.find_first_of(" \t\r\n/>")); }

  void Close() {
    const std::string_view name = NameIn(xml_.substr(at_ + 2));
    if (open_.empty() || open_.back() != name) Fail("</" + std::string(name) + "> does not close the open element");
    open_.pop_back();
    SkipPast(">");
  }

  void Open() {
    const std::string_view name = NameIn(xml_.substr(at_ + 1));
    if (open_.size() == kDeepest) Fail("elements nested deeper than " + std::to_string(kDeepest));
    const std::size_t end = EndOfTag();
    if (xml_[end - 1] != '/') open_.push_back(name);
    at_ = end + 1;
  }

  // A '>' inside a quoted attribute does not end the tag.
  std::size_t EndOfTag() const {
    std::size_t end = xml_.find_first_of("\"'>", at_);
    while (end != std::string_view::npos && xml_[end] != '>') {
      const std::size_t quote = xml_.find(xml_[end], end + 1);
      end = quote == std::string_view::npos ? quote : xml_.find_first_of("\"'>", quote + 1);
    }
    if (end == std::string_view::npos) Fail("unexpected end of data");
    return end;
  }

  std::string_view xml_;
  std::size_t at_ = 0;
  std::vector<std::string_view> open_;
};

// Every text of a document goes through here, so that text that is not UTF-8 is the document's fault.
std::wstring Decode(const std::string& text) {
  try {
    return Utf8ToWide(text);
  } catch (const std::range_error&) {
    throw DocumentError("not XML: it is not UTF-8");
  }
}

}  // namespace

XmlElement::XmlElement(std::string_view name, const boost::property_tree::ptree& tree) : name_(name), tree_(&tree) {
  const auto found = tree.find("<xmlattr>");
  if (found != tree.not_found()) attributes_ = &found->second;
}

const std::string* XmlElement::Find(const char* attribute) const {
  if (attributes_ == nullptr) return nullptr;
  const auto found = attributes_->find(attribute);
  return found == attributes_->not_found() ? nullptr : &found->second.data();
}

DocumentError XmlElement::Bad(const char* attribute, const std::string& value, const char* what) const {
  return DocumentError(name_ + ": " + attribute + " \"" + value + "\" " + what);
}

std::optional<std::wstring> XmlElement::Text(const char* attribute) const {
  const std::string* value = Find(attribute);
  if (value == nullptr) return std::nullopt;
  return Decode(*value);
}

std::wstring XmlElement::RequiredText(const char* attribute) const {
  std::optional<std::wstring> value = Text(attribute);
  if (!value) throw DocumentError(name_ + " without " + attribute);
  return std::move(*value);
}

std::optional<GUID> XmlElement::Identifier(const char* attribute) const {
  const std::string* value = Find(attribute);
  if (value == nullptr) return std::nullopt;
  const std::optional<GUID> guid = TryParseBareGuid<GUID>(std::string_view(*value));
  if (!guid) throw Bad(attribute, *value, "is no GUID");
  return guid;
}

GUID XmlElement::RequiredIdentifier(const char* attribute) const {
  const std::optional<GUID> guid = Identifier(attribute);
  if (!guid) throw DocumentError(name_ + " without " + attribute);
  return *guid;
}

std::int64_t XmlElement::Number(const char* attribute, std::int64_t absent) const {
  const std::string* value = Find(attribute);
  if (value == nullptr) return absent;
  std::int64_t number = 0;
  const char* end = value->data() + value->size();
  const auto [at, error] = std::from_chars(value->data(), end, number);
  if (error != std::errc() || at != end) throw Bad(attribute, *value, "is no number");
  return number;
}

bool XmlElement::Flag(const char* attribute, bool absent) const {
  constexpr Word<bool> kFlags[] = {{"yes", true}, {"no", false}};
  return OneOf(attribute, kFlags, absent);
}

void XmlElement::ForEachChild(const std::function<void(const XmlElement&)>& visit) const {
  for (const auto& [name, tree] : *tree_) {
    if (!name.starts_with('<')) visit(XmlElement(name, tree));
  }
}

XmlDocument::XmlDocument(std::string_view xml) : tree_(std::make_unique<boost::property_tree::ptree>()) {
  if (xml.find('\0') != std::string_view::npos) throw DocumentError("not XML: it contains a NUL character");
  NestingCheck(xml).Run();
  std::istringstream stream{std::string(xml)};
  try {
    boost::property_tree::read_xml(stream, *tree_, boost::property_tree::xml_parser::no_comments);
  } catch (const boost::property_tree::xml_parser_error& error) {
    throw DocumentError("not XML: line " + std::to_string(error.line()) + ": " + error.message());
  }
}

XmlDocument::~XmlDocument() = default;

XmlElement XmlDocument::Root(std::string_view name) const {
  if (tree_->empty()) throw DocumentError("not XML: there is no element");
  if (tree_->size() > 1) throw DocumentError("not XML: there is more than one root element");
  const auto& [found, tree] = tree_->front();
  if (found != name) throw DocumentError("the root element is " + found + ", not " + std::string(name));
  return XmlElement(found, tree);
}

XmlText& XmlText::Raw(std::string_view markup) {
  text_ += markup;
  return *this;
}

XmlText& XmlText::Attribute(std::string_view name, std::string_view value) {
  text_ += ' ';
  text_ += name;
  text_ += "=\"";
  for (const char c : value) Escape(c);
  text_ += '"';
  return *this;
}

XmlText& XmlText::Attribute(std::string_view name, std::wstring_view value) {
  return Attribute(name, WideToUtf8Lossy(value));
}

XmlText& XmlText::Attribute(std::string_view name, const GUID& value) {
  return Attribute(name, FormatBareGuid(value));
}

XmlText& XmlText::Optional(std::string_view name, const std::optional<std::wstring>& value) {
  return value ? Attribute(name, *value) : *this;
}

XmlText& XmlText::Flag(std::string_view name, bool value) {
  return Attribute(name, value ? "yes" : "no");
}

XmlText& XmlText::Number(std::string_view name, std::int64_t value) {
  return Attribute(name, std::to_string(value));
}

// Line breaks are written as references, so that a reader that normalises white space keeps them.
void XmlText::Escape(char c) {
  switch (c) {
    case '&':
      text_ += "&amp;";
      return;
    case '<':
      text_ += "&lt;";
      return;
    case '>':
      text_ += "&gt;";
      return;
    case '"':
      text_ += "&quot;";
      return;
    case '\t':
    case '\n':
    case '\r':
      text_ += "&#" + std::to_string(static_cast<int>(c)) + ";";
      return;
    default:
      // XML has no way to write the other control characters.
      if (static_cast<unsigned char>(c) < 0x20) {
        text_ += "\xEF\xBF\xBD";
      } else {
        text_ += c;
      }
  }
}

}  // namespace varnel::simulator
