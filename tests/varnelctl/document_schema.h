// docs/varnelctl.schema.json against what varnelctl prints.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

namespace varnel::test {

/// The schema that the documents are described by.
const nlohmann::json& DocumentSchema();

/// What the schema has against a document or a line of --json-lines, an entry for each: where it is, and what is wrong
/// there. A key that the schema does not know is named.
std::vector<std::string> SchemaErrors(const nlohmann::json& document);

/// The same of docs/journal.schema.json against an entry of the journal.
std::vector<std::string> JournalSchemaErrors(const nlohmann::json& entry);

/// The same of docs/fleet.schema.json against a fleet.json.
std::vector<std::string> FleetSchemaErrors(const nlohmann::json& run);

}  // namespace varnel::test
