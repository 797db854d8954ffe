#include "varnelctl/sets/writer_moments.h"

#include <algorithm>

#include "simulator/vss/snapshot_service.h"

namespace varnelctl {
namespace {

using varnel::simulator::RaisedEvent;
using varnel::simulator::WriterEvent;

const char* NameOf(const std::optional<WriterEvent>& event) {
  if (!event) return "Abort";
  switch (*event) {
    case WriterEvent::identify:
      return "Identify";
    case WriterEvent::prepareBackup:
      return "PrepareBackup";
    case WriterEvent::prepareSnapshot:
      return "PrepareSnapshot";
    case WriterEvent::freeze:
      return "Freeze";
    case WriterEvent::thaw:
      return "Thaw";
    case WriterEvent::postSnapshot:
      return "PostSnapshot";
    case WriterEvent::backupComplete:
      return "BackupComplete";
    case WriterEvent::backupShutdown:
      return "BackupShutdown";
    case WriterEvent::preRestore:
      return "PreRestore";
    case WriterEvent::postRestore:
      return "PostRestore";
  }
  return "";
}

}  // namespace

WriterMoments::WriterMoments(const Session& session)
    : session_(session), before_(session.writerEvents == nullptr ? 0 : session.writerEvents->size()) {}

std::vector<WriterMoment> WriterMoments::Since(unsigned long long start) const {
  if (session_.writerEvents == nullptr) return {};
  std::vector<WriterMoment> moments;
  for (std::size_t i = before_; i < session_.writerEvents->size(); ++i) {
    const RaisedEvent& raised = (*session_.writerEvents)[i];
    moments.push_back({raised.time - start, raised.writer, NameOf(raised.event), raised.failure});
  }
  std::stable_sort(moments.begin(), moments.end(),
                   [](const WriterMoment& a, const WriterMoment& b) { return a.time < b.time; });
  return moments;
}

}  // namespace varnelctl
