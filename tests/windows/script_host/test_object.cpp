#include "test_object.h"

#include <psapi.h>

#include <cstdio>

namespace korvane::test {

namespace {

enum : DISPID {
  kCheck = 1,
  kEqual,
  kFail,
  kLog,
  kPrint,
  kArgument,
  kReadFile,
  kWriteFile,
  kFileExists,
  kMemory,
  kHandles,
};

const LateBound::Member kMembers[] = {
    {L"Check", kCheck, {L"Condition", L"Claim"}},
    {L"Equal", kEqual, {L"Actual", L"Expected", L"Claim"}},
    {L"Fail", kFail, {L"Claim"}},
    {L"Log", kLog, {L"Text"}},
    {L"Print", kPrint, {L"Text"}},
    {L"Argument", kArgument, {L"Number"}},
    {L"ReadFile", kReadFile, {L"Path"}},
    {L"WriteFile", kWriteFile, {L"Path", L"Text"}},
    {L"FileExists", kFileExists, {L"Path"}},
    {L"Memory", kMemory, {}},
    {L"Handles", kHandles, {}},
};

std::wstring TypeName(VARTYPE type) {
  switch (type) {
    case VT_EMPTY:
      return L"empty";
    case VT_NULL:
      return L"null";
    case VT_BOOL:
      return L"boolean";
    case VT_BSTR:
      return L"text";
    case VT_DATE:
      return L"date";
    case VT_DISPATCH:
      return L"object";
    case VT_I2:
    case VT_I4:
    case VT_R8:
      return L"number";
    default:
      return L"type " + std::to_wstring(type);
  }
}

/// The type belongs to the value: "5" is not 5, and empty is not 0.
std::wstring Shown(const Variant& value) {
  const std::wstring type = TypeName(value.vt);
  if (value.vt == VT_EMPTY || value.vt == VT_NULL || value.vt == VT_DISPATCH) return type;
  return type + L" [" + value.ToText() + L"]";
}

/// Bytes as characters of the same number.
std::wstring ReadBytes(const std::wstring& path) {
  FILE* file = _wfopen(path.c_str(), L"rb");
  if (!file) throw Fault{HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"No such file: " + path};
  std::wstring bytes;
  for (int byte = fgetc(file); byte != EOF; byte = fgetc(file)) bytes += static_cast<wchar_t>(byte);
  fclose(file);
  return bytes;
}

void WriteBytes(const std::wstring& path, const std::wstring& bytes) {
  FILE* file = _wfopen(path.c_str(), L"wb");
  if (!file) throw Fault{E_ACCESSDENIED, L"This cannot be written: " + path};
  for (const wchar_t byte : bytes) fputc(byte, file);
  fclose(file);
}

LONG PrivateKilobytes() {
  PROCESS_MEMORY_COUNTERS_EX counters = {};
  counters.cb = sizeof counters;
  GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                       sizeof counters);
  return static_cast<LONG>(counters.PagefileUsage / 1024);
}

LONG OpenHandles() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  return static_cast<LONG>(count);
}

}  // namespace

void PrintLine(const std::wstring& text) {
  const std::string line = ToUtf8(text) + "\n";
  fwrite(line.data(), 1, line.size(), stdout);
  fflush(stdout);
}

TestObject::TestObject(std::vector<std::wstring> arguments)
    : LateBound(L"Test", kMembers), arguments_(std::move(arguments)) {}

void TestObject::Claim(bool holds, const std::wstring& claim) {
  ++(holds ? passed_ : failed_);
  PrintLine((holds ? L"ok    " : L"FAIL  ") + claim);
}

void TestObject::Fail(const std::wstring& claim) { Claim(false, claim); }

Variant TestObject::Do(DISPID member, Use, const Arguments& arguments) {
  switch (member) {
    case kCheck:
      Claim(arguments.at(0).ToBoolean(), arguments.at(1).ToText());
      return {};
    case kEqual: {
      const std::wstring actual = Shown(arguments.at(0));
      const std::wstring expected = Shown(arguments.at(1));
      const std::wstring claim = arguments.at(2).ToText();
      if (actual == expected) {
        Claim(true, claim);
      } else {
        Claim(false, claim + L": " + actual + L" instead of " + expected);
      }
      return {};
    }
    case kFail:
      Fail(arguments.at(0).ToText());
      return {};
    case kLog:
      PrintLine(L"      " + arguments.at(0).ToText());
      return {};
    case kPrint:
      PrintLine(arguments.at(0).ToText());
      return {};
    case kArgument: {
      const LONG number = arguments.at(0).ToNumber();
      if (number < 1 || static_cast<size_t>(number) > arguments_.size()) {
        throw Fault{DISP_E_BADINDEX, L"There is no such argument."};
      }
      return Variant::Text(arguments_[static_cast<size_t>(number - 1)]);
    }
    case kReadFile:
      return Variant::Text(ReadBytes(arguments.at(0).ToText()));
    case kWriteFile:
      WriteBytes(arguments.at(0).ToText(), arguments.at(1).ToText());
      return {};
    case kFileExists:
      return Variant::Boolean(GetFileAttributesW(arguments.at(0).ToText().c_str()) !=
                              INVALID_FILE_ATTRIBUTES);
    case kMemory:
      return Variant::Number(PrivateKilobytes());
    case kHandles:
      return Variant::Number(OpenHandles());
    default:
      throw Fault{DISP_E_MEMBERNOTFOUND, L""};
  }
}

}  // namespace korvane::test
