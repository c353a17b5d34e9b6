// A VARIANT that clears itself, and texts between UTF-8 and UTF-16.
#pragma once

#include <windows.h>

#include <oleauto.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace korvane::test {

std::string ToUtf8(std::wstring_view text);
std::wstring ToWide(std::string_view utf8);

class Variant : public VARIANT {
 public:
  Variant() { VariantInit(this); }
  Variant(const Variant& other) : Variant() { VariantCopy(this, const_cast<Variant*>(&other)); }
  Variant(Variant&& other) noexcept : VARIANT(other) { VariantInit(&other); }
  Variant& operator=(Variant other) noexcept {
    std::swap(static_cast<VARIANT&>(*this), static_cast<VARIANT&>(other));
    return *this;
  }
  ~Variant() { VariantClear(this); }

  /// A copy of the value, also of one that a reference points at.
  static Variant Of(const VARIANT& value);
  static Variant Null();
  static Variant Number(LONG value);
  static Variant Boolean(bool value);
  static Variant Text(std::wstring_view value);
  /// Takes over the caller's reference.
  static Variant Object(IDispatch* object);

  bool Missing() const { return vt == VT_ERROR && scode == DISP_E_PARAMNOTFOUND; }
  bool IsObject() const { return vt == VT_DISPATCH && pdispVal != nullptr; }
  /// As automation converts, by the user's locale or another; nothing where it cannot.
  std::optional<Variant> As(VARTYPE type, LCID locale = LOCALE_USER_DEFAULT) const;
  /// The same; throws a Fault with the conversion's own number.
  std::wstring ToText() const;
  LONG ToNumber() const;
  bool ToBoolean() const;
};

/// What ends a call: the number reaches the caller as it is, in EXCEPINFO's scode.
struct Fault {
  HRESULT number;
  std::wstring description;
};

}  // namespace korvane::test
