// What a run tells programs: one JSON document at its end, and as JSON lines what happens on the way as well.
// docs/varnelctl.schema.json describes all of it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "varnelctl/console/console.h"
#include "varnelctl/console/warning.h"
#include "varnelctl/explanation/failure.h"
#include "varnelctl/report/header.h"

namespace varnelctl {

/// How the results of a run leave the program.
enum class Format {
  Text,         ///< for people
  OneDocument,  ///< JSON
  Lines,        ///< JSON, one document a line, the last of which holds the whole
};

/// The document of one run. With Format::Text nothing of it is printed.
class Document {
 public:
  /// The console is borrowed.
  Document(Console& console, Format format);
  ~Document();
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  /// Comes first, once.
  void Begin(Header header);
  /// Nothing before Begin.
  const std::optional<Header>& header() const { return header_; }
  void Warn(const Warning& warning);
  std::size_t warningCount() const { return warnings_.size(); }
  /// Takes these back, where they are about something that is done anew: the whole does not have them.
  void ForgetWarnings(std::size_t first, std::size_t last);
  /// \param state "started", "done" or "failed". \param milliseconds since it started.
  void Step(std::string_view name, std::string_view state, unsigned long long milliseconds);
  /// What the run has found. \param kind of the document: the command's name.
  void Set(std::string_view kind, Json keys);
  /// One more key of it; nothing happens where nothing was found.
  void Add(const char* key, Json value);
  /// What the run failed over; the first one counts. \param errorDetails alert records, UTF-8.
  void Fail(const Failure& failure, std::string errorDetails);
  /// Null without one.
  const std::optional<Failure>& failure() const { return failure_; }
  /// The document of a run that ends so, as End prints it.
  Json Whole(ExitStatus status) const;
  /// Comes last, once: prints the document.
  void End(ExitStatus status);

 private:
  void Event(std::string_view event, const Json& keys);
  bool IsFailureTold() const;

  Console& console_;
  const Format format_;
  std::optional<Header> header_;
  std::vector<Warning> warnings_;
  std::string kind_;
  std::unique_ptr<Json> keys_;  // null until they are set
  std::optional<Failure> failure_;
  std::string errorDetails_;
};

/// "0x80042301"
std::string Hex(HRESULT hr);

/// The key `result`. No failure is success.
Json ResultJson(const std::optional<Failure>& failure);

}  // namespace varnelctl
