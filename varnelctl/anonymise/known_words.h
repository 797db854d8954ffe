// What every Windows host has: it tells nothing of this one.
#pragma once

#include <span>
#include <string_view>

namespace varnelctl {

/// Folders, databases, instances and products that stay readable.
std::span<const std::string_view> WellKnownNames();
/// Names that anybody's folder or file may have; a database of such a name is replaced all the same.
bool IsOrdinaryName(std::string_view folded);
/// An extension, in small letters and without its dot, that tells what a file is and not whose.
bool IsUsualExtension(std::string_view folded);
/// An attribute of the service's documents whose values are words of the format or numbers.
bool IsFormatAttribute(std::string_view attribute);
/// An attribute of the service's documents that holds what a writer left for itself.
bool IsOpaqueAttribute(std::string_view attribute);

}  // namespace varnelctl
