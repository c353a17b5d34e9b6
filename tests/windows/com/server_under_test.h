// The DLL as a client meets it: loaded from the build, or through the registry.
#pragma once

#include <oaidl.h>
#include <oleauto.h>

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "automation/com/variant.h"

namespace korvane::test {

using com::Reference;
using com::Variant;

/// The build's Korvane_beta1.dll, loaded for the whole run.
std::u16string ServerFile();
HRESULT GetClassObject(REFCLSID id, REFIID iid, void** object);
HRESULT CanUnloadNow();
HRESULT RegisterServer();
HRESULT UnregisterServer();

/// The class identifier of a class of the library.
CLSID ClassId(std::string_view class_name);
IID InterfaceId(std::string_view class_name);

/// A new object through the DLL's class factory.
Reference<IDispatch> Create(std::string_view class_name);

/// What came of a call.
struct Outcome {
  HRESULT status = S_OK;
  Variant value;
  HRESULT number = S_OK;  ///< what the exception is about
  std::string source;
  std::string description;
  UINT wrong = 99;
  /// The texts and numbers of the value, "" and -1 for others.
  std::string Text() const;
  LONG Number() const;
  bool Truth() const;
  Reference<IDispatch> Object() const;
};

DISPID IdOf(IDispatch* object, std::string_view name);
/// Calls by name; the arguments are in their order, and stay the caller's.
Outcome Call(IDispatch* object, std::string_view name, std::vector<VARIANT> arguments = {},
             WORD how = DISPATCH_METHOD | DISPATCH_PROPERTYGET);
Outcome Put(IDispatch* object, std::string_view name, VARIANT value,
            WORD how = DISPATCH_PROPERTYPUT);

/// What is passed.
VARIANT Int(LONG value);
VARIANT Short(SHORT value);
VARIANT Truth(bool value);
VARIANT Real(double value);
VARIANT Object(IDispatch* value);
VARIANT Missing();
VARIANT Null();
VARIANT ByReference(VARIANT& value);
/// A text that lives until the end of the process.
VARIANT Text(std::string_view utf8);

}  // namespace korvane::test
