// The service's XML documents.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

#include "simulator/machine/model.h"

namespace varnel::simulator {

/// A document that is not what it should be: the reason in UTF-8.
class DocumentError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a Writer Metadata Document (UTF-8). Throws DocumentError.
Writer ParseWriterMetadata(std::string_view xml);
/// The same, and the writer keeps the document as it is.
Writer ReadWriterDocument(std::string xml);
/// Writes one, in one line and without a declaration, as the service does.
std::string FormatWriterMetadata(const Writer& writer);

}  // namespace varnel::simulator
