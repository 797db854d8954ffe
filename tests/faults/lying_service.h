// A service that passes on what its writers say, and now and then a lie: in their metadata, in their status and in the
// backup components document. A lie fails, delivers nothing, or delivers something strange; it keeps to COM's own rules
// (what a call hands out is real, and the caller's), because nobody can guard against writers that do not.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/simulated_host.h"
#include "tests/support/forwarding_vss.h"
#include "tests/support/random.h"

namespace varnel::test {

/// Text that no writer should send.
inline std::wstring StrangeText(Random& random) {
  constexpr wchar_t kHighSurrogate = static_cast<wchar_t>(0xD83D);
  constexpr wchar_t kLowSurrogate = static_cast<wchar_t>(0xDE00);
  switch (random.Below(12)) {
    case 0:
      return L"";
    case 1:
      return std::wstring(65536 + random.Below(3), L'x');
    case 2:
      return std::wstring(L"a") + kHighSurrogate + L"b";
    case 3:
      return std::wstring(1, kLowSurrogate);
    case 4:
      return std::wstring(L"x\0y", 3);
    case 5:
      return std::wstring(1 + random.Below(5), L'\\');
    case 6:
      return L"%s%n%S%d %1 100%";
    case 7:
      return L"a\\b\\a\\b\\a\\b";
    case 8:
      return L"one,\ntwo;\"three\"=\t@";
    case 9:
      return L"\u00C4\u0436\uFFFF";
    case 10:
      return L"../..\\:*?<CSV>";
    default:
      return std::wstring(1, L'\0');
  }
}

/// Decides who lies when. The same seed lies at the same calls.
class Liar {
 public:
  enum class Lie {
    none,
    failure,
    failureWithAnswer,  // and yet the outputs are filled
    nothing,            // S_OK without an answer
    falseNothing,       // S_FALSE without an answer
    strange,
  };

  enum class Subject { metadata, status, document };

  /// \param subject what is lied about; nothing: everything.
  /// \param perMille of the questions that are answered with a lie, until `most` have been.
  Liar(unsigned seed, std::optional<Subject> subject, unsigned perMille, unsigned most)
      : random_(seed), subject_(subject), perMille_(perMille), left_(most) {}

  Lie Next(Subject subject) {
    if (subject_.value_or(subject) != subject) return Lie::none;
    if (left_ == 0 || random_.Below(1000) >= perMille_) return Lie::none;
    --left_;
    ++lies_;
    const Lie lie = random_.Pick({Lie::failure, Lie::failureWithAnswer, Lie::nothing, Lie::falseNothing, Lie::strange,
                                  Lie::strange, Lie::strange});
    ++told_[{subject, lie}];
    return lie;
  }
  HRESULT Failure() {
    return random_.Pick<HRESULT>({E_UNEXPECTED, E_OUTOFMEMORY, VSS_E_OBJECT_NOT_FOUND, VSS_E_BAD_STATE,
                                  VSS_E_WRITERERROR_PARTIAL_FAILURE, static_cast<HRESULT>(0x80040E14)});
  }
  /// A count that is not `truth`, and that no memory has to be afraid of.
  UINT Count(UINT truth) {
    const UINT count = random_.Pick<UINT>({0, truth - std::min(truth, 1u), truth + 1, truth + 5, 300});
    return count == truth ? truth + 2 : count;
  }
  Random& random() { return random_; }
  unsigned lies() const { return lies_; }
  /// How many lies of each kind.
  const std::map<std::pair<Subject, Lie>, unsigned>& told() const { return told_; }

 private:
  Random random_;
  std::optional<Subject> subject_;
  unsigned perMille_;
  unsigned left_;
  unsigned lies_ = 0;
  std::map<std::pair<Subject, Lie>, unsigned> told_;
};

using Lie = Liar::Lie;
using Subject = Liar::Subject;
/// Answers a question for text.
template <class Ask>
HRESULT TellText(simulator::Machine& machine, Liar& liar, Subject subject, BSTR* output, Ask ask) {
  const Lie lie = liar.Next(subject);
  if (lie == Lie::none) return ask(output);
  *output = nullptr;
  if (lie == Lie::failure) return liar.Failure();
  if (lie == Lie::nothing) return S_OK;
  if (lie == Lie::falseNothing) return S_FALSE;
  *output = machine.MakeBstr(StrangeText(liar.random()));
  return lie == Lie::failureWithAnswer ? liar.Failure() : liar.random().Pick<HRESULT>({S_OK, S_FALSE});
}

/// Answers a question for a number. One that fails or tells nothing leaves the output as it is.
template <class Number, class Ask, class Strange>
HRESULT TellNumber(Liar& liar, Subject subject, Number* output, Ask ask, Strange strange) {
  const Lie lie = liar.Next(subject);
  if (lie == Lie::failure) return liar.Failure();
  if (lie == Lie::nothing) return S_OK;
  if (lie == Lie::falseNothing) return S_FALSE;
  const HRESULT result = ask(output);
  if (lie == Lie::none || FAILED(result)) return result;
  *output = strange(*output);
  return lie == Lie::failureWithAnswer ? liar.Failure() : S_OK;
}

template <class Ask>
HRESULT TellCount(Liar& liar, Subject subject, UINT* output, Ask ask) {
  return TellNumber(liar, subject, output, ask, [&](UINT truth) { return liar.Count(truth); });
}

/// Answers a question for the object at `index`, wrapped. A strange one is another object of the list.
template <class Interface, class Ask, class Wrap>
HRESULT TellObject(Liar& liar, Subject subject, UINT index, Interface** output, Ask ask, Wrap wrap) {
  *output = nullptr;
  const Lie lie = liar.Next(subject);
  if (lie == Lie::failure) return liar.Failure();
  if (lie == Lie::nothing) return S_OK;
  if (lie == Lie::falseNothing) return S_FALSE;
  ComPtr<Interface> truth;
  const HRESULT result = ask(lie == Lie::strange ? liar.random().Below(index + 1) : index, truth.Put());
  if (FAILED(result)) return result;
  *output = wrap(std::move(truth));
  return lie == Lie::failureWithAnswer ? liar.Failure() : result;
}

class LyingFile final : public OnMachine<ForwardingFile> {
 public:
  LyingFile(MachinePtr machine, ComPtr<IVssWMFiledesc> truth, Liar& liar)
      : OnMachine(std::move(machine), std::move(truth)), liar_(liar) {}
  HRESULT STDMETHODCALLTYPE GetPath(BSTR* path) override {
    return TellText(machine(), liar_, Subject::metadata, path, [&](BSTR* text) { return inner().GetPath(text); });
  }
  HRESULT STDMETHODCALLTYPE GetFilespec(BSTR* filespec) override {
    return TellText(machine(), liar_, Subject::metadata, filespec,
                    [&](BSTR* text) { return inner().GetFilespec(text); });
  }
  HRESULT STDMETHODCALLTYPE GetRecursive(VssBool* recursive) override {
    return TellNumber(
        liar_, Subject::metadata, recursive, [&](VssBool* flag) { return inner().GetRecursive(flag); },
        [](VssBool flag) { return !flag; });
  }
  HRESULT STDMETHODCALLTYPE GetAlternateLocation(BSTR* location) override {
    return TellText(machine(), liar_, Subject::metadata, location,
                    [&](BSTR* text) { return inner().GetAlternateLocation(text); });
  }

 private:
  Liar& liar_;
};

class LyingComponent final : public OnMachine<ForwardingComponent> {
 public:
  LyingComponent(MachinePtr machine, ComPtr<IVssWMComponent> truth, Liar& liar)
      : OnMachine(std::move(machine), std::move(truth)), liar_(liar) {}

  HRESULT STDMETHODCALLTYPE GetComponentInfo(PVSSCOMPONENTINFO* info) override {
    *info = nullptr;
    const Lie lie = liar_.Next(Subject::metadata);
    // Nobody frees information that came with a failure, so that lie is left out.
    if (lie == Lie::failure || lie == Lie::failureWithAnswer) return liar_.Failure();
    if (lie == Lie::nothing) return S_OK;
    if (lie == Lie::falseNothing) return S_FALSE;
    PVSSCOMPONENTINFO truth = nullptr;
    const HRESULT result = inner().GetComponentInfo(&truth);
    if (FAILED(result)) return result;
    *info = HandOut(*truth, lie == Lie::strange);
    inner().FreeComponentInfo(truth);
    return result;
  }
  HRESULT STDMETHODCALLTYPE FreeComponentInfo(PVSSCOMPONENTINFO info) override {
    const auto held = std::find_if(held_.begin(), held_.end(), [&](const auto& own) { return own.get() == info; });
    if (held == held_.end()) {
      machine().live.AddMisuse("component information given back that the caller does not hold");
      return E_INVALIDARG;
    }
    for (const BSTR text : {info->bstrLogicalPath, info->bstrComponentName, info->bstrCaption})
      machine().FreeBstr(text);
    held_.erase(held);
    machine().live.Remove("component information of a liar");
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetFile(UINT index, IVssWMFiledesc** file) override {
    return Tell(index, file, &IVssWMComponent::GetFile);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseFile(UINT index, IVssWMFiledesc** file) override {
    return Tell(index, file, &IVssWMComponent::GetDatabaseFile);
  }
  HRESULT STDMETHODCALLTYPE GetDatabaseLogFile(UINT index, IVssWMFiledesc** file) override {
    return Tell(index, file, &IVssWMComponent::GetDatabaseLogFile);
  }

 private:
  HRESULT Tell(UINT index, IVssWMFiledesc** file,
               HRESULT (STDMETHODCALLTYPE IVssWMComponent::*ask)(UINT, IVssWMFiledesc**)) {
    return TellObject(
        liar_, Subject::metadata, index, file,
        [&](UINT at, IVssWMFiledesc** truth) { return (inner().*ask)(at, truth); },
        [&](ComPtr<IVssWMFiledesc> truth) { return new LyingFile(sharedMachine(), std::move(truth), liar_); });
  }

  BSTR Text(BSTR truth, bool strange) {
    if (strange && liar_.random().Chance(40)) {
      return liar_.random().Chance(30) ? nullptr : machine().MakeBstr(StrangeText(liar_.random()));
    }
    return truth == nullptr ? nullptr : machine().MakeBstr(std::wstring_view(truth, ::SysStringLen(truth)));
  }

  PVSSCOMPONENTINFO HandOut(const VSS_COMPONENTINFO& truth, bool strange) {
    auto told = std::make_unique<VSS_COMPONENTINFO>(truth);
    told->bstrLogicalPath = Text(truth.bstrLogicalPath, strange);
    told->bstrComponentName = Text(truth.bstrComponentName, strange);
    told->bstrCaption = Text(truth.bstrCaption, strange);
    if (strange) {
      UINT VSS_COMPONENTINFO::*const counts[] = {&VSS_COMPONENTINFO::cFileCount, &VSS_COMPONENTINFO::cDatabases,
                                                 &VSS_COMPONENTINFO::cLogFiles};
      UINT& count = (*told).*counts[liar_.random().Below(3)];
      if (liar_.random().Chance(50)) count = liar_.Count(count);
      if (liar_.random().Chance(20)) told->type = liar_.random().Pick({VSS_CT_UNDEFINED, VSS_CT_DATABASE});
      if (liar_.random().Chance(20)) told->bSelectable = !told->bSelectable;
    }
    machine().live.Add("component information of a liar");
    held_.push_back(std::move(told));
    return held_.back().get();
  }

  Liar& liar_;
  std::vector<std::unique_ptr<VSS_COMPONENTINFO>> held_;
};

class LyingMetadata final : public OnMachine<ForwardingMetadata> {
 public:
  LyingMetadata(MachinePtr machine, ComPtr<IVssExamineWriterMetadata> truth, Liar& liar)
      : OnMachine(std::move(machine), std::move(truth)), liar_(liar) {}

  HRESULT STDMETHODCALLTYPE GetIdentity(VSS_ID* instance, VSS_ID* writer, BSTR* name, VSS_USAGE_TYPE* usage,
                                        VSS_SOURCE_TYPE* source) override {
    const HRESULT result = TellText(machine(), liar_, Subject::metadata, name, [&](BSTR* text) {
      return inner().GetIdentity(instance, writer, text, usage, source);
    });
    if (SUCCEEDED(result) && liar_.Next(Subject::metadata) == Lie::strange) *instance = GUID{1, 1, 0, {}};
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetRestoreMethod(VSS_RESTOREMETHOD_ENUM* method, BSTR* service, BSTR* userProcedure,
                                             VSS_WRITERRESTORE_ENUM* writerRestore, VssBool* rebootRequired,
                                             UINT* mappings) override {
    *service = nullptr;
    return TellText(machine(), liar_, Subject::metadata, userProcedure, [&](BSTR* text) {
      return inner().GetRestoreMethod(method, service, text, writerRestore, rebootRequired, mappings);
    });
  }
  HRESULT STDMETHODCALLTYPE GetFileCounts(UINT* includeFiles, UINT* excludeFiles, UINT* components) override {
    const HRESULT result = inner().GetFileCounts(includeFiles, excludeFiles, components);
    const HRESULT excludes = TellCount(liar_, Subject::metadata, excludeFiles, [&](UINT*) { return result; });
    const HRESULT told = TellCount(liar_, Subject::metadata, components, [&](UINT*) { return excludes; });
    return FAILED(excludes) ? excludes : told;
  }
  HRESULT STDMETHODCALLTYPE GetExcludeFile(UINT index, IVssWMFiledesc** file) override {
    return TellObject(
        liar_, Subject::metadata, index, file,
        [&](UINT at, IVssWMFiledesc** truth) { return inner().GetExcludeFile(at, truth); },
        [&](ComPtr<IVssWMFiledesc> truth) { return new LyingFile(sharedMachine(), std::move(truth), liar_); });
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssWMComponent** component) override {
    return TellObject(
        liar_, Subject::metadata, index, component,
        [&](UINT at, IVssWMComponent** truth) { return inner().GetComponent(at, truth); },
        [&](ComPtr<IVssWMComponent> truth) { return new LyingComponent(sharedMachine(), std::move(truth), liar_); });
  }

 private:
  Liar& liar_;
};

class LyingDocumentComponent final : public DocumentComponentObject {
 public:
  LyingDocumentComponent(MachinePtr machine, ComPtr<IVssComponent> truth, Liar& liar)
      : DocumentComponentObject(std::move(machine)), truth_(std::move(truth)), liar_(liar) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    *object = nullptr;
    const Lie lie = liar_.Next(Subject::document);
    if (lie == Lie::failure) return liar_.Failure();
    if (lie == Lie::nothing) return S_OK;
    if (lie == Lie::falseNothing) return S_FALSE;
    return DocumentComponentObject::QueryInterface(id, object);
  }
  HRESULT STDMETHODCALLTYPE GetComponentName(BSTR* name) override {
    return TellText(machine(), liar_, Subject::document, name,
                    [&](BSTR* text) { return truth_->GetComponentName(text); });
  }
  HRESULT STDMETHODCALLTYPE GetLogicalPath(BSTR* path) override {
    return TellText(machine(), liar_, Subject::document, path,
                    [&](BSTR* text) { return truth_->GetLogicalPath(text); });
  }
  // Nearly every component tells a failure of its own: without one there would be little to read.
  HRESULT STDMETHODCALLTYPE GetFailure(HRESULT* failure, HRESULT* applicationResult, BSTR* message,
                                       DWORD* reserved) override {
    *failure = liar_.random().Chance(60) ? liar_.Failure() : S_OK;
    *applicationResult = liar_.random().Pick<HRESULT>({S_OK, 7, E_UNEXPECTED});
    *reserved = liar_.random().Below(2);
    return TellText(machine(), liar_, Subject::document, message, [&](BSTR* text) {
      *text = machine().MakeBstr(L"a message");
      return S_OK;
    });
  }

 private:
  ComPtr<IVssComponent> truth_;
  Liar& liar_;
};

class LyingWriterComponents final : public OnMachine<ForwardingWriterComponents> {
 public:
  LyingWriterComponents(MachinePtr machine, ComPtr<IVssWriterComponentsExt> truth, Liar& liar)
      : OnMachine(std::move(machine), std::move(truth)), liar_(liar) {}

  HRESULT STDMETHODCALLTYPE GetComponentCount(UINT* components) override {
    return TellCount(liar_, Subject::document, components,
                     [&](UINT* count) { return inner().GetComponentCount(count); });
  }
  HRESULT STDMETHODCALLTYPE GetWriterInfo(VSS_ID* instance, VSS_ID* writer) override {
    return TellNumber(
        liar_, Subject::document, instance, [&](VSS_ID* id) { return inner().GetWriterInfo(id, writer); },
        [&](const VSS_ID&) {
          return GUID{liar_.random().Below(7), 1, 0, {}};
        });
  }
  HRESULT STDMETHODCALLTYPE GetComponent(UINT index, IVssComponent** component) override {
    return TellObject(
        liar_, Subject::document, index, component,
        [&](UINT at, IVssComponent** truth) { return inner().GetComponent(at, truth); },
        [&](ComPtr<IVssComponent> truth) {
          return new LyingDocumentComponent(sharedMachine(), std::move(truth), liar_);
        });
  }

 private:
  Liar& liar_;
};

/// \param failingPercent how many of the status entries report a failure besides the lies.
class LyingBackup final : public OnMachine<ForwardingBackup> {
 public:
  LyingBackup(MachinePtr machine, ComPtr<IVssBackupComponents> truth, Liar& liar, unsigned failingPercent)
      : OnMachine(std::move(machine), std::move(truth)), liar_(liar), failingPercent_(failingPercent) {}

  HRESULT STDMETHODCALLTYPE GetWriterMetadataCount(UINT* writers) override {
    return TellCount(liar_, Subject::metadata, writers,
                     [&](UINT* count) { return inner().GetWriterMetadataCount(count); });
  }
  HRESULT STDMETHODCALLTYPE GetWriterMetadata(UINT index, VSS_ID* instance,
                                              IVssExamineWriterMetadata** metadata) override {
    return TellObject(
        liar_, Subject::metadata, index, metadata,
        [&](UINT at, IVssExamineWriterMetadata** truth) { return inner().GetWriterMetadata(at, instance, truth); },
        [&](ComPtr<IVssExamineWriterMetadata> truth) {
          return new LyingMetadata(sharedMachine(), std::move(truth), liar_);
        });
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusCount(UINT* writers) override {
    return TellCount(liar_, Subject::status, writers, [&](UINT* count) { return inner().GetWriterStatusCount(count); });
  }
  HRESULT STDMETHODCALLTYPE GetWriterStatusEx(UINT index, VSS_ID* instance, VSS_ID* writer, BSTR* name,
                                              VSS_WRITER_STATE* state, HRESULT* failure, HRESULT* applicationResult,
                                              BSTR* message) override {
    *message = nullptr;
    const HRESULT result = TellText(machine(), liar_, Subject::status, name, [&](BSTR* text) {
      return ForwardingBackup::GetWriterStatusEx(index, instance, writer, text, state, failure, applicationResult,
                                                 message);
    });
    if (SUCCEEDED(result) && liar_.random().Chance(failingPercent_)) TellFailure(state, failure);
    if (SUCCEEDED(result) && liar_.Next(Subject::status) == Lie::strange) TellAnotherWriter(instance, message);
    return result;
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponentsCount(UINT* components) override {
    return TellCount(liar_, Subject::document, components,
                     [&](UINT* count) { return inner().GetWriterComponentsCount(count); });
  }
  HRESULT STDMETHODCALLTYPE GetWriterComponents(UINT index, IVssWriterComponentsExt** writer) override {
    return TellObject(
        liar_, Subject::document, index, writer,
        [&](UINT at, IVssWriterComponentsExt** truth) { return inner().GetWriterComponents(at, truth); },
        [&](ComPtr<IVssWriterComponentsExt> truth) {
          return new LyingWriterComponents(sharedMachine(), std::move(truth), liar_);
        });
  }

 private:
  void TellFailure(VSS_WRITER_STATE* state, HRESULT* failure) {
    *failure = liar_.random().Chance(70) ? VSS_E_WRITERERROR_PARTIAL_FAILURE : liar_.Failure();
    *state = static_cast<VSS_WRITER_STATE>(liar_.random().Pick({0, 5, 9, 11, 16, 31}));
  }
  void TellAnotherWriter(VSS_ID* instance, BSTR* message) {
    *instance = GUID{liar_.random().Below(7), 1, 0, {}};
    if (*message == nullptr) *message = machine().MakeBstr(StrangeText(liar_.random()));
  }

  Liar& liar_;
  unsigned failingPercent_;
};

class LyingService final : public ForwardingVss {
 public:
  LyingService(simulator::SimulatedHost& host, Liar& liar, unsigned failingPercent)
      : ForwardingVss(host.vss()), host_(host), liar_(liar), failingPercent_(failingPercent) {}

 private:
  IVssBackupComponents* Wrap(ComPtr<IVssBackupComponents> backup) override {
    return new LyingBackup(host_.machine().shared_from_this(), std::move(backup), liar_, failingPercent_);
  }

  simulator::SimulatedHost& host_;
  Liar& liar_;
  unsigned failingPercent_;
};

}  // namespace varnel::test
