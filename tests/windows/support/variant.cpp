#include "support/variant.h"

namespace korvane::test {

namespace {

Variant Changed(const Variant& value, VARTYPE type) {
  std::optional<Variant> changed = value.As(type);
  if (!changed) throw Fault{DISP_E_TYPEMISMATCH, L"The value is of another type."};
  return *std::move(changed);
}

}  // namespace

std::optional<Variant> Variant::As(VARTYPE type, LCID locale) const {
  Variant changed;
  auto* source = const_cast<Variant*>(this);
  if (FAILED(VariantChangeTypeEx(&changed, source, locale, VARIANT_ALPHABOOL, type))) {
    return std::nullopt;
  }
  return changed;
}

std::string ToUtf8(std::wstring_view text) {
  const int length = static_cast<int>(text.size());
  std::string utf8(static_cast<size_t>(WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr,
                                                           0, nullptr, nullptr)),
                   '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), length, utf8.data(), static_cast<int>(utf8.size()),
                      nullptr, nullptr);
  return utf8;
}

std::wstring ToWide(std::string_view utf8) {
  const int length = static_cast<int>(utf8.size());
  std::wstring text(
      static_cast<size_t>(MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), static_cast<int>(text.size()));
  return text;
}

Variant Variant::Of(const VARIANT& value) {
  Variant copy;
  VariantCopyInd(&copy, const_cast<VARIANT*>(&value));
  return copy;
}

Variant Variant::Null() {
  Variant made;
  made.vt = VT_NULL;
  return made;
}

Variant Variant::Number(LONG value) {
  Variant made;
  made.vt = VT_I4;
  made.lVal = value;
  return made;
}

Variant Variant::Boolean(bool value) {
  Variant made;
  made.vt = VT_BOOL;
  made.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
  return made;
}

Variant Variant::Text(std::wstring_view value) {
  Variant made;
  made.vt = VT_BSTR;
  made.bstrVal = SysAllocStringLen(value.data(), static_cast<UINT>(value.size()));
  return made;
}

Variant Variant::Object(IDispatch* object) {
  Variant made;
  made.vt = VT_DISPATCH;
  made.pdispVal = object;
  return made;
}

std::wstring Variant::ToText() const {
  const Variant text = Changed(*this, VT_BSTR);
  return {text.bstrVal ? text.bstrVal : L"", SysStringLen(text.bstrVal)};
}

LONG Variant::ToNumber() const { return Changed(*this, VT_I4).lVal; }

bool Variant::ToBoolean() const { return Changed(*this, VT_BOOL).boolVal != VARIANT_FALSE; }

}  // namespace korvane::test
