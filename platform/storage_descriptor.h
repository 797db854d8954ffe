// The serial number in a disk's answer to IOCTL_STORAGE_QUERY_PROPERTY.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <span>
#include <string>

#include "platform/win32.h"

namespace varnel {

/// What a device without a serial number says its offset is.
constexpr DWORD kNoSerialNumberOffset = 0xFFFFFFFF;

/// Nothing when the answer ends before it tells. `returned` is what the device gave, not the buffer's room.
inline std::optional<DWORD> SerialNumberOffsetIn(std::span<const BYTE> returned) {
  constexpr std::size_t kWhere = offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset);
  DWORD offset = 0;
  if (returned.size() < kWhere + sizeof offset) return std::nullopt;
  std::memcpy(&offset, returned.data() + kWhere, sizeof offset);
  return offset;
}

/// The text at `offset` as the device gives it, blanks included. Nothing unless it lies with its NUL within the
/// returned bytes and has 1 to 511 characters.
inline std::optional<std::wstring> SerialNumberAt(DWORD offset, std::span<const BYTE> returned) {
  constexpr std::size_t kMostCharacters = 511;
  if (offset >= returned.size()) return std::nullopt;
  const BYTE* const text = returned.data() + offset;
  const auto* const end = static_cast<const BYTE*>(std::memchr(text, '\0', returned.size() - offset));
  if (end == nullptr || end == text || static_cast<std::size_t>(end - text) > kMostCharacters) return std::nullopt;
  return std::wstring(text, end);
}

}  // namespace varnel
