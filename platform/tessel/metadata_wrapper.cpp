#include "platform/tessel/MetadataWrapper.h"

#include <cstring>
#include <mutex>
#include <new>
#include <string>

#include "platform/host.h"

namespace {

std::mutex textsMutex;  // of every wrapper: an answer replaces a text, and two must not free the same

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
  const bool found = varnel::CurrentHost().metadata().FindDatabasesToQuiesce(TextOf(serialNumber), databases, error);
  const std::lock_guard<std::mutex> lock(textsMutex);
  if (found) {
    SetDbFilesToQuiescePtr(CopyText(databases));
  } else {
    Replace(errorDetails, CopyText(error));
  }
  return found;
}

char* MetadataWrapper::W_GetClusterName(const char* name) {
  const std::string networkName = varnel::CurrentHost().metadata().GetClusterName(TextOf(name));
  const std::lock_guard<std::mutex> lock(textsMutex);
  SetSqlClusterNamePtr(CopyText(networkName));
  return sqlClusterName;
}

char* MetadataWrapper::W_GetErrorDetailStructurePtr() {
  const std::lock_guard<std::mutex> lock(textsMutex);
  return errorDetails;
}
