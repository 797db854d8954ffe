// The maker's logging library, as far as varnel calls it.
#pragma once

#include "platform/export.h"

/// The process's log. A null instance means that nobody listens: callers skip the line before they format anything.
class VARNEL_API CFileLog {
 public:
  /// 1 verbose (per item), 2 information (entry, progress, results), 3 warning (degraded), 4 error (every failure that
  /// is reported or thrown).
  enum Category { Verbose = 1, Information = 2, Warning = 3, Error = 4 };

  /// The process's log, not the caller's; null while nobody listens (varnel::ScopedLog).
  static CFileLog* GetInstance();

  /// Writes one line. `format` is a wide printf format in which %s takes a wide and %S a narrow text. A line for which
  /// there is no memory is lost.
  void Log(int category, const wchar_t* source, int line, const wchar_t* format, ...);
};
