#include "tests/varnelctl/document_schema.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

namespace varnel::test {
namespace {

using Adapter = valijson::adapters::NlohmannJsonAdapter;

nlohmann::json ReadSchema(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return nlohmann::json::parse(file);
}

class CompiledSchema {
 public:
  CompiledSchema(const char* name, const nlohmann::json& schema) : name_(name) {
    valijson::SchemaParser().populateSchema(Adapter(schema), schema_);
  }

  std::vector<std::string> Errors(const nlohmann::json& document) const {
    valijson::ValidationResults results;
    valijson::Validator().validate(schema_, Adapter(document), &results);
    std::vector<std::string> errors;
    for (const valijson::ValidationResults::Error& error : results) {
      std::string text;
      for (const std::string& place : error.context) text += place;
      errors.push_back(text + ": " + error.description + " (docs/" + name_ + ")");
    }
    return errors;
  }

 private:
  std::string name_;
  valijson::Schema schema_;
};

}  // namespace

const nlohmann::json& DocumentSchema() {
  static const nlohmann::json schema = ReadSchema(VARNEL_DOCS "/varnelctl.schema.json");
  return schema;
}

std::vector<std::string> SchemaErrors(const nlohmann::json& document) {
  static const CompiledSchema schema("varnelctl.schema.json", DocumentSchema());
  return schema.Errors(document);
}

std::vector<std::string> JournalSchemaErrors(const nlohmann::json& entry) {
  static const CompiledSchema schema("journal.schema.json", ReadSchema(VARNEL_DOCS "/journal.schema.json"));
  return schema.Errors(entry);
}

std::vector<std::string> FleetSchemaErrors(const nlohmann::json& run) {
  static const CompiledSchema schema("fleet.schema.json", ReadSchema(VARNEL_DOCS "/fleet.schema.json"));
  return schema.Errors(run);
}

}  // namespace varnel::test
