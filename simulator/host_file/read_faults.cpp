#include "simulator/host_file/read_faults.h"

#include <algorithm>

#include "simulator/host_file/host_words.h"
#include "simulator/host_file/read_disks.h"
#include "simulator/machine/call_names.h"

namespace varnel::simulator {
namespace {

std::string ReadName(const JsonNode& node, std::span<const std::string_view> names, const char* what) {
  if (std::find(names.begin(), names.end(), node.Utf8()) == names.end()) {
    node.Refuse(what + DidYouMean(node.Utf8(), names));
  }
  return node.Utf8();
}

// Whether something hangs; then it comes to none of the results that the other keys tell.
bool ReadHangs(const JsonObject& object, std::initializer_list<const char*> results) {
  bool hangs = false;
  object.Read("hangs", hangs);
  for (const char* key : results) {
    if (hangs && object.Has(key)) object.At(key).Fail("what hangs has no result");
  }
  return hangs;
}

CallFault ReadCallFault(const JsonObject& object) {
  CallFault fault;
  fault.call =
      ReadName(object.At("call"), CallNames(), "is no call that may fail (Interface::Method or a function's name)");
  object.Read("occurrence", fault.occurrence);
  fault.hangs = ReadHangs(object, {"result"});
  if (!fault.hangs) fault.result = object.At("result").Result();
  return fault;
}

AsyncFault ReadAsyncFault(const JsonObject& object) {
  AsyncFault fault;
  fault.async = ReadName(object.At("async"), AsyncNames(), "starts no asynchronous operation");
  object.Read("occurrence", fault.occurrence);
  fault.hangs = ReadHangs(object, {"result"});
  fault.result = fault.hangs ? VSS_S_ASYNC_PENDING : static_cast<HRESULT>(object.At("result").Result());
  return fault;
}

// What a failing writer and a failing component have in common.
template <class Fault>
void ReadFailure(const JsonObject& object, Fault& fault) {
  fault.failure = static_cast<HRESULT>(object.At("failure").Result());
  if (const auto result = object.Find("applicationResult")) {
    fault.applicationResult = static_cast<HRESULT>(result->Result());
  }
  object.Read("applicationMessage", fault.applicationMessage);
}

std::wstring ReadWriterName(const JsonNode& node, const HostModel& model) {
  std::wstring name = node.Text();
  std::vector<std::wstring> names;
  for (const Writer& writer : model.writers) names.push_back(writer.name);
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    node.Fail("no writer is named \"" + node.Utf8() + "\"" + DidYouMean(node.Utf8(), names));
  }
  return name;
}

// Several instances of a writer class may share one name.
std::wstring ReadComponentOf(const JsonNode& node, const HostModel& model, const std::wstring& writerName) {
  std::wstring fullPath = node.Text();
  std::vector<std::wstring> paths;
  for (const Writer& writer : model.writers) {
    if (writer.name != writerName) continue;
    for (const WriterComponent& component : writer.components) paths.push_back(FullPath(component));
  }
  if (std::find(paths.begin(), paths.end(), fullPath) == paths.end()) {
    node.Fail("the writer has no component \"" + node.Utf8() + "\"" + DidYouMean(node.Utf8(), paths));
  }
  return fullPath;
}

WriterFault ReadWriterFault(const JsonObject& object, const HostModel& model) {
  WriterFault fault;
  fault.writer = ReadWriterName(object.At("writer"), model);
  fault.event = object.At("event").OneOf(kWriterEvents);
  fault.hangs = ReadHangs(object, {"failure", "applicationResult", "applicationMessage", "components"});
  if (!fault.hangs) ReadFailure(object, fault);
  object.ReadList("components", fault.components, [&](const JsonNode& node) {
    const JsonObject entry(node, {"fullPath", "failure", "applicationResult", "applicationMessage"});
    ComponentFault component;
    component.fullPath = ReadComponentOf(entry.At("fullPath"), model, fault.writer);
    ReadFailure(entry, component);
    return component;
  });
  return fault;
}

DeletionFault ReadDeletionFault(const JsonObject& object, const HostModel& model) {
  const std::wstring serial = ReadSerialOf(model.disks, object.At("deleteShadowOf"));
  const JsonNode result = object.At("result");
  const auto failure = static_cast<HRESULT>(result.Result());
  if (SUCCEEDED(failure)) result.Fail("a deletion that fails needs a failure");
  return {serial, failure};
}

}  // namespace

void ReadFault(const JsonNode& node, HostModel& model) {
  if (node.HasMember("call")) {
    model.faults.calls.push_back(ReadCallFault(JsonObject(node, {"call", "occurrence", "result", "hangs"})));
  } else if (node.HasMember("async")) {
    model.faults.asyncs.push_back(ReadAsyncFault(JsonObject(node, {"async", "occurrence", "result", "hangs"})));
  } else if (node.HasMember("writer")) {
    const JsonObject object(
        node, {"writer", "event", "failure", "applicationResult", "applicationMessage", "components", "hangs"});
    model.faults.writers.push_back(ReadWriterFault(object, model));
  } else if (node.HasMember("deleteShadowOf")) {
    model.faults.deletions.push_back(ReadDeletionFault(JsonObject(node, {"deleteShadowOf", "result"}), model));
  } else {
    node.Fail("expected one of call, async, writer, deleteShadowOf");
  }
}

}  // namespace varnel::simulator
