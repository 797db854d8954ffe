// The writers of a host file, given in it or as Writer Metadata Documents beside it.
#pragma once

#include <filesystem>
#include <vector>

#include "simulator/host_file/json_reader.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

/// Documents are looked up in `directory`.
std::vector<Writer> ReadWriters(const JsonObject& root, const std::filesystem::path& directory);

}  // namespace varnel::simulator
