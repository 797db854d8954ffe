// Alert records taken out of text: the error details of a run, or what somebody has pasted.
#pragma once

#include <string_view>
#include <vector>

#include "platform/win32.h"

namespace varnelctl {

struct RecordText {
  DWORD number;           ///< from 1, in the order of varnel::alert::All()
  std::string_view text;  ///< without the lists that may follow; borrowed
};

/// Every record of the text, in its order.
std::vector<RecordText> RecordsIn(std::string_view text);

/// The value of a field; empty without one.
std::string_view FieldOf(const RecordText& record, std::string_view key);

struct RecordField {
  std::string_view key;
  std::string_view value;  ///< without what ends the record
};

/// Every field of a record, in its order.
std::vector<RecordField> FieldsOf(const RecordText& record);

/// The call that a record of a failed call (1) begins with, such as "m_pVssObject->AddComponent()".
std::string_view CallOf(const RecordText& record);

/// What a call's text calls: "AddComponent" of the above.
std::string_view MethodOf(std::string_view call);

}  // namespace varnelctl
