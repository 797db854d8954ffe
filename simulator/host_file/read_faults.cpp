#include "simulator/host_file/read_faults.h"

#include <algorithm>

#include "simulator/host_file/read_disks.h"

namespace varnel::simulator {
namespace {

constexpr Word<WriterEvent> kWriterEvents[] = {
    {"identify", WriterEvent::identify},
    {"prepareBackup", WriterEvent::prepareBackup},
    {"prepareSnapshot", WriterEvent::prepareSnapshot},
    {"freeze", WriterEvent::freeze},
    {"thaw", WriterEvent::thaw},
    {"postSnapshot", WriterEvent::postSnapshot},
    {"backupComplete", WriterEvent::backupComplete},
    {"backupShutdown", WriterEvent::backupShutdown},
    {"preRestore", WriterEvent::preRestore},
    {"postRestore", WriterEvent::postRestore},
};

bool IsIdentifier(std::string_view text) {
  const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; };
  return !text.empty() && letter(text.front()) &&
         std::all_of(text.begin(), text.end(), [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
}

bool IsCallName(std::string_view text) {
  const std::size_t colons = text.find("::");
  if (colons == std::string_view::npos) return IsIdentifier(text);
  return IsIdentifier(text.substr(0, colons)) && IsIdentifier(text.substr(colons + 2));
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
  const JsonNode call = object.At("call");
  fault.call = call.Utf8();
  if (!IsCallName(fault.call)) call.Refuse("is no call (Interface::Method or a function's name)");
  object.Read("occurrence", fault.occurrence);
  fault.hangs = ReadHangs(object, {"result"});
  if (!fault.hangs) fault.result = object.At("result").Result();
  return fault;
}

AsyncFault ReadAsyncFault(const JsonObject& object) {
  AsyncFault fault;
  const JsonNode async = object.At("async");
  fault.async = async.Utf8();
  if (!IsIdentifier(fault.async)) async.Refuse("is no method's name");
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

// Several instances of a writer class may share one name.
bool HasComponent(const HostModel& model, const std::wstring& writerName, const std::wstring& fullPath) {
  return std::any_of(model.writers.begin(), model.writers.end(), [&](const Writer& writer) {
    return writer.name == writerName &&
           std::any_of(writer.components.begin(), writer.components.end(),
                       [&](const WriterComponent& component) { return FullPath(component) == fullPath; });
  });
}

WriterFault ReadWriterFault(const JsonObject& object, const HostModel& model) {
  WriterFault fault;
  const JsonNode writer = object.At("writer");
  fault.writer = writer.Text();
  if (std::none_of(model.writers.begin(), model.writers.end(),
                   [&](const Writer& candidate) { return candidate.name == fault.writer; })) {
    writer.Fail("no writer is named \"" + writer.Utf8() + "\"");
  }
  fault.event = object.At("event").OneOf(kWriterEvents);
  fault.hangs = ReadHangs(object, {"failure", "applicationResult", "applicationMessage", "components"});
  if (!fault.hangs) ReadFailure(object, fault);
  object.ReadList("components", fault.components, [&](const JsonNode& node) {
    const JsonObject entry(node, {"fullPath", "failure", "applicationResult", "applicationMessage"});
    ComponentFault component;
    const JsonNode fullPath = entry.At("fullPath");
    component.fullPath = fullPath.Text();
    if (!HasComponent(model, fault.writer, component.fullPath)) {
      fullPath.Fail("the writer has no component \"" + fullPath.Utf8() + "\"");
    }
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
