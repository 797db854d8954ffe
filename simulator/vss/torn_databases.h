// Databases of which a snapshot set holds a part only, as their writers find them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "simulator/machine/machine.h"
#include "simulator/vss/backup_document.h"

namespace varnel::simulator {

/// How a writer answers PostSnapshot where components were added: it fails when a selected database, one that was added
/// or stands below one that was, has a file on no volume of the set. `volumes` are the set's, by their unique names.
std::optional<WriterFault> JudgeSelectedDatabases(const Machine& machine, const Writer& writer,
                                                  const std::vector<DocumentComponent>& added,
                                                  const std::vector<std::wstring>& volumes);

/// How a writer answers PrepareSnapshot where the volumes of the set choose its databases: it fails when one of them
/// lies there in part.
std::optional<WriterFault> JudgeDatabasesOfVolumes(const Machine& machine, const Writer& writer,
                                                   const std::vector<std::wstring>& volumes);

}  // namespace varnel::simulator
