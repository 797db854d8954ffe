// Names of a host that nobody else shall read, replaced by readable ones that say nothing.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "varnelctl/console/console.h"

namespace varnelctl {

/// What a name is of. It decides what the replacement looks like: HOST01, DB0017, SERIAL0003.
enum class NameKind {
  Host,
  Domain,
  Cluster,
  Instance,
  Database,
  Machine,
  Component,
  Serial,
  Target,
  Label,
  Folder,
  File,
  Identifier,  // a GUID, replaced by another one
};

/// Replaces names in any text: the same original by the same replacement everywhere, in whatever case it stands. A name
/// is found where it stands whole, between characters that are neither letters nor digits: "Sales" in
/// "C:\Data\Sales.mdf" and in "Sales_log.ldf", not in "Salesforce". Where names begin at one place the longest is
/// taken.
///
/// These stay readable and are no originals: folders and databases that every Windows and SQL Server has, the usual
/// extensions of files, drives, and what Keep was told. No replacement is a word of an original.
class Anonymiser {
 public:
  Anonymiser();

  /// Names a name (UTF-8) that shall be replaced; the first kind that it was told under counts. Blanks and punctuation
  /// at its ends stay. A replacement is chosen with the first text that is replaced after it: names that were told
  /// before the first text differ from all replacements.
  void Add(NameKind kind, std::string_view original);
  void Add(NameKind kind, std::wstring_view original);
  /// Every folder of a path and, without its usual extension and wildcards, the file there; nothing of a path below the
  /// Windows folder.
  void AddPath(std::wstring_view folders, std::wstring_view file = {});

  /// A text that stays as it is wherever it stands whole: the name of a product.
  void Keep(std::string_view text);
  void Keep(std::wstring_view text);
  /// A text that is going to be replaced: what looks like a replacement in it is none.
  void Avoid(std::string_view text);

  /// Of UTF-8 in plain words, such as a line of a log. Linear in the text.
  std::string Replace(std::string_view text);
  std::wstring Replace(std::wstring_view text);
  /// Of a document of the service: of the values of attributes, except those that are words of the format. What writers
  /// left for themselves (backup metadata, stamps) becomes "anonymised" in Base64: names lie in it that nobody can
  /// find.
  std::string ReplaceInXml(std::string_view xml);
  /// Of every text in a value. Keys, and the values below those of `exempt`, stay.
  Json ReplaceInJson(Json value, const std::unordered_set<std::string>& exempt = {});

  /// [{"kind", "original", "replacement"}...], in the order of the replacements. In a text that spells an original in
  /// another way than here its replacement stands in small letters.
  Json Key();

 private:
  struct Name {
    NameKind kind;
    std::string original;
    std::string replacement;
  };
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };
  template <class Value>
  using ByText = std::unordered_map<std::string, Value, TextHash, std::equal_to<>>;

  void Remember(std::string folded, std::size_t name);
  void AddFileName(std::string_view file);
  void ChooseReplacements();
  void AppendReplaced(std::string& result, std::string_view text);
  /// How much of the text at a place is one of ours, and its name; 0 where none is.
  std::pair<std::size_t, std::size_t> FindAt(std::string_view folded, std::size_t at, std::size_t wordEnd) const;
  std::string_view ReplacementFor(std::size_t name, std::string_view found, std::string& small) const;
  void AppendText(std::string& result, std::string_view text);
  std::size_t AppendTag(std::string& result, std::string_view xml, std::size_t at);
  std::size_t AppendAttribute(std::string& result, std::string_view tag, std::size_t quote);

  std::vector<Name> names_;
  std::size_t chosen_ = 0;                    // so many have their replacement
  std::map<NameKind, int> numbers_;           // the last one given out
  std::unordered_set<std::wstring> folders_;  // paths whose folders are known
  ByText<std::size_t> byText_;                // folded text -> its name, or kKept
  ByText<std::vector<std::size_t>> lengths_;  // folded first word -> the lengths of what begins with it, longest first
  std::unordered_set<std::string> taken_;     // folded words that no replacement may be
};

}  // namespace varnelctl
