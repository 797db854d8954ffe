// Which calls were made.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/win32.h"

namespace varnel::simulator {

/// Arguments that the lines of the call log leave out, in the order of the calls and whether these failed or not. For
/// tests of how something asks, `host.calls().arguments().createFile.at(0).access`.
struct CallArguments {
  /// Of CreateFileW.
  struct CreateFile {
    /// The argument of this name.
    ///@{
    std::wstring name;  ///< empty for a null pointer
    DWORD access;
    DWORD share;
    DWORD disposition;
    DWORD flags;
    ///@}
  };
  /// Of DeviceIoControl.
  struct DeviceIoControl {
    /// The argument of this name.
    ///@{
    DWORD code;
    DWORD outBytes;
    ///@}
  };
  /// Of CoCreateInstance.
  struct CoCreateInstance {
    /// The argument of this name.
    ///@{
    GUID classId;
    DWORD context;
    GUID interfaceId;
    ///@}
  };
  /// Of FormatMessageW.
  struct FormatMessage {
    /// The argument of this name.
    ///@{
    DWORD id;
    DWORD flags;
    DWORD language;
    DWORD characters;
    ///@}
  };

  /// Each call of this name.
  ///@{
  std::vector<CreateFile> createFile;
  std::vector<DeviceIoControl> deviceIoControl;
  std::vector<CoCreateInstance> coCreateInstance;
  std::vector<FormatMessage> formatMessage;
  ///@}
};

/// Every call with its arguments and result, one line each: `Interface::Method(arguments) = RESULT`.
class CallLog {
 public:
  /// Takes a line.
  using Sink = std::function<void(const std::string& line)>;

  /// Adds a line, unless the log is off.
  void Add(std::string line);
  /// Keeps one call's arguments in its list: `Keep(&CallArguments::createFile, {name, access, ...})`.
  template <class Record>
  void Keep(std::vector<Record> CallArguments::*list, std::type_identity_t<Record> record) {
    if (enabled && !sink_) (arguments_.*list).push_back(std::move(record));
  }
  /// From now on lines go there, each as it is added, and neither they nor arguments are kept here.
  void SendTo(Sink sink) { sink_ = std::move(sink); }
  /// Every line so far.
  const std::vector<std::string>& lines() const { return lines_; }
  /// The same as text, each with a line end. Also while calls are made.
  std::string Text() const;
  /// Every argument that was kept so far.
  const CallArguments& arguments() const { return arguments_; }
  /// Forgets lines and arguments.
  void Clear();
  /// The lines whose call is `call`.
  std::vector<std::string> Of(std::string_view call) const;
  /// Off while only speed counts.
  bool enabled = true;

 private:
  mutable std::mutex mutex_;  ///< of the lines
  Sink sink_;
  std::vector<std::string> lines_;
  CallArguments arguments_;
};

}  // namespace varnel::simulator
