// The disks and volumes of a host file.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "simulator/host_file/json_reader.h"
#include "simulator/machine/model.h"

namespace varnel::simulator {

std::vector<Disk> ReadDisks(const JsonNode& list);

/// The disk whose serial number a node names; a failure there when no disk has it.
const Disk& ReadDiskOf(const std::vector<Disk>& disks, const JsonNode& node);
/// The volume that a node names by its unique name or a mount point; a failure there when there is none.
const Volume& ReadVolumeOf(const std::vector<Disk>& disks, const JsonNode& node);
std::wstring ReadSerialOf(const std::vector<Disk>& disks, const JsonNode& node);
void ExpectDisk(const std::vector<Disk>& disks, std::wstring_view serial, const JsonNode& node);

}  // namespace varnel::simulator
