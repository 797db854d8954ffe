#include "platform/tessel/MetadataWrapper.h"

#include <cstring>
#include <new>
#include <string>

#include "platform/host.h"

namespace {

char* CopyText(const std::string& text) {
  char* copy = static_cast<char*>(std::malloc(text.size() + 1));
  if (copy == nullptr) throw std::bad_alloc();
  std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

std::string TextOf(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

MetadataWrapper* MetadataWrapper::GetMetadataWrapperInstance() {
  static MetadataWrapper instance;
  return varnel::CurrentHostOrNull() == nullptr ? nullptr : &instance;
}

bool MetadataWrapper::W_FindDataBaseToQuiesce(const char* serialNumber) {
  std::string databases;
  std::string error;
  if (varnel::CurrentHost().metadata().FindDatabasesToQuiesce(TextOf(serialNumber), databases, error)) {
    SetDbFilesToQuiescePtr(CopyText(databases));
    return true;
  }
  Replace(errorDetails, CopyText(error));
  return false;
}

char* MetadataWrapper::W_GetClusterName(const char* name) {
  SetSqlClusterNamePtr(CopyText(varnel::CurrentHost().metadata().GetClusterName(TextOf(name))));
  return sqlClusterName;
}

char* MetadataWrapper::W_GetErrorDetailStructurePtr() {
  return errorDetails;
}
