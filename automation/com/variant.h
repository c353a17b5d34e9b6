// Automation's own types as values that clear themselves.
#pragma once

#include <oaidl.h>
#include <oleauto.h>

#include <new>
#include <string_view>
#include <utility>

#include "frame/utf16.h"

namespace korvane::com {

/// A reference to an object, counted.
template <class Interface>
class Reference {
 public:
  Reference() = default;
  /// Counts one more.
  explicit Reference(Interface* object) : object_(object) {
    if (object_) object_->AddRef();
  }
  Reference(const Reference& other) : Reference(other.object_) {}
  Reference(Reference&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Reference& operator=(Reference other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Reference() {
    if (object_) object_->Release();
  }
  Interface* get() const { return object_; }
  Interface* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }
  /// The reference goes to the caller.
  Interface* Detach() { return std::exchange(object_, nullptr); }
  /// Where a function puts the object that it hands out.
  Interface** Out() {
    *this = Reference();
    return &object_;
  }
  void** OutVoid() { return reinterpret_cast<void**>(Out()); }

 private:
  Interface* object_ = nullptr;
};

inline std::u16string_view TextOf(const OLECHAR* text, size_t length) {
  static_assert(sizeof(OLECHAR) == sizeof(char16_t));
  return {reinterpret_cast<const char16_t*>(text), length};
}

/// The text of a BSTR, NULs included; none is the empty text.
inline std::string TextOf(BSTR text) {
  return text ? FromUtf16(TextOf(text, SysStringLen(text))) : std::string();
}

/// The caller frees it.
inline BSTR NewText(std::string_view utf8) {
  const std::u16string text = ToUtf16(utf8);
  const BSTR made = SysAllocStringLen(reinterpret_cast<const OLECHAR*>(text.data()),
                                      static_cast<UINT>(text.size()));
  if (!made) throw std::bad_alloc();
  return made;
}

class Variant : public VARIANT {
 public:
  Variant() { VariantInit(this); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  Variant(Variant&& other) noexcept : VARIANT(other) { VariantInit(&other); }
  Variant& operator=(Variant&& other) noexcept {
    std::swap(static_cast<VARIANT&>(*this), static_cast<VARIANT&>(other));
    return *this;
  }
  ~Variant() { VariantClear(this); }

  static Variant Number(LONG number) {
    Variant value;
    value.vt = VT_I4;
    value.lVal = number;
    return value;
  }
  static Variant Text(std::string_view utf8) {
    Variant value;
    value.bstrVal = NewText(utf8);
    value.vt = VT_BSTR;
    return value;
  }
  /// Counts one more.
  static Variant Object(IDispatch* object) {
    Variant value;
    value.vt = VT_DISPATCH;
    value.pdispVal = object;
    if (object) object->AddRef();
    return value;
  }
  /// The value goes to the caller, whose place is not cleared first.
  void MoveTo(VARIANT* place) {
    *place = *this;
    VariantInit(this);
  }
};

}  // namespace korvane::com
