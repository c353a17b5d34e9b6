// The numbers that ADO and its providers give their faults.
#pragma once

#include <windows.h>

namespace korvane::test {

inline constexpr HRESULT AdoNumber(long number) {
  return static_cast<HRESULT>(0x800A0000UL | static_cast<unsigned long>(number));
}

inline constexpr HRESULT kInvalidArgument = AdoNumber(3001);
inline constexpr HRESULT kNoCurrentRecord = AdoNumber(3021);
inline constexpr HRESULT kIllegalOperation = AdoNumber(3219);
inline constexpr HRESULT kNotChangeable = AdoNumber(3251);
inline constexpr HRESULT kItemNotFound = AdoNumber(3265);
inline constexpr HRESULT kObjectClosed = AdoNumber(3704);
inline constexpr HRESULT kObjectOpen = AdoNumber(3705);
inline constexpr HRESULT kInvalidConnection = AdoNumber(3709);

inline constexpr HRESULT kErrorInCommand = static_cast<HRESULT>(0x80040E14);
inline constexpr HRESULT kErrorsOccurred = static_cast<HRESULT>(0x80040E21);
inline constexpr HRESULT kIntegrityViolation = static_cast<HRESULT>(0x80040E2F);
inline constexpr HRESULT kTimeOut = static_cast<HRESULT>(0x80040E31);
inline constexpr HRESULT kNoSuchTable = static_cast<HRESULT>(0x80040E37);
inline constexpr HRESULT kRowChanged = static_cast<HRESULT>(0x80040E38);

}  // namespace korvane::test
