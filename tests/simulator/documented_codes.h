// Which codes the platform documents for each call of the service, and how a requestor's test meets them here.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/simulator/backup.h"

namespace varnel::test {

/// A call that is ready to be made.
using Made = std::function<HRESULT()>;
/// Brings a fresh host and a backup to the state in which the call is made.
using Prepare = std::function<Made()>;

/// A code that the call comes to by itself.
struct Reached {
  HRESULT code;
  std::string how;  // the state, the arguments or the order of calls
  Prepare prepare;
  HostModel (*host)() = VssHost;
};

struct DocumentedCall {
  std::string name;
  std::vector<Reached> byItself;  // the first one is also the call that faults are tried on
  std::vector<HRESULT> byFault;
};

/// An asynchronous operation, by the method that starts it, and what its status may tell.
struct DocumentedAsync {
  std::string name;
  std::vector<Reached> byItself;
  std::vector<HRESULT> byFault;
};

std::vector<DocumentedCall> BackupCalls();
std::vector<DocumentedCall> ObjectCalls();
std::vector<DocumentedAsync> Asyncs();
/// The failures that a writer comes to by itself, as its status tells them.
std::vector<Reached> WriterFailures();

inline const char kNullResult[] = "a null pointer for a result";

/// A call on the backup components object of a backup that has come so far.
template <class Call>
Prepare At(Phase phase, Call call, LONG context = VSS_CTX_BACKUP) {
  return [=]() -> Made {
    const auto backup = std::make_shared<Backup>(phase, context);
    return [=] { return call(*backup); };
  };
}

/// Where an object comes from: a backup that has come so far gives it.
template <class Object>
struct Source {
  Phase phase;
  ComPtr<Object> (*obtain)(Backup& backup);
};

template <class Object, class Call>
Prepare Of(const Source<Object>& source, Call call) {
  return [=]() -> Made {
    const auto backup = std::make_shared<Backup>(source.phase);
    const auto object = std::make_shared<ComPtr<Object>>(source.obtain(*backup));
    return [=] { return call(**object); };
  };
}

/// Calls a method that has one result, and drops that.
template <class Object, class Interface, class Value>
HRESULT Ask(Object& object, HRESULT (STDMETHODCALLTYPE Interface::*get)(Value*)) {
  std::conditional_t<std::is_same_v<Value, BSTR>, Bstr, Value> value{};
  if constexpr (std::is_same_v<Value, BSTR>) {
    return (object.*get)(value.Put());
  } else {
    return (object.*get)(&value);
  }
}

/// A method with one result.
template <class Object, class Interface, class Value>
DocumentedCall Getter(std::string name, const Source<Object>& source,
                      HRESULT (STDMETHODCALLTYPE Interface::*get)(Value*), std::vector<HRESULT> byFault,
                      const Reached& normally = {S_OK, "there is one", {}}) {
  const auto ask = [get](Object& object) { return Ask(object, get); };
  const auto askForNothing = [get](Object& object) { return (object.*get)(nullptr); };
  return {std::move(name),
          {{normally.code, normally.how, Of(source, ask)}, {E_INVALIDARG, kNullResult, Of(source, askForNothing)}},
          std::move(byFault)};
}

}  // namespace varnel::test
