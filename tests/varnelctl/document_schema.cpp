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

class CompiledSchema {
 public:
  CompiledSchema() { valijson::SchemaParser().populateSchema(Adapter(DocumentSchema()), schema_); }
  const valijson::Schema& Get() const { return schema_; }

 private:
  valijson::Schema schema_;
};

}  // namespace

const nlohmann::json& DocumentSchema() {
  static const nlohmann::json schema = [] {
    std::ifstream file(VARNEL_DOCUMENT_SCHEMA, std::ios::binary);
    return nlohmann::json::parse(file);
  }();
  return schema;
}

std::vector<std::string> SchemaErrors(const nlohmann::json& document) {
  static const CompiledSchema schema;
  valijson::ValidationResults results;
  valijson::Validator().validate(schema.Get(), Adapter(document), &results);
  std::vector<std::string> errors;
  for (const valijson::ValidationResults::Error& error : results) {
    std::string text;
    for (const std::string& place : error.context) text += place;
    errors.push_back(text + ": " + error.description + " (docs/varnelctl.schema.json)");
  }
  return errors;
}

}  // namespace varnel::test
