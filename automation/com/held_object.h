// One of the component's objects as automation holds it: by name and number (IDispatch), by the
// slots of its dual interface, with error information and its type.
//
// An object that is handed out twice is the same object for automation as well. The object is used
// on one thread at a time, its apartment's; a call into an object that is in the middle of a call,
// as a connection of the page's making could try, is refused.
#pragma once

#include <oaidl.h>
#include <ocidl.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "frame/any.h"
#include "frame/object_model.h"
#include "server.h"
#include "variant.h"

namespace korvane::com {

class HeldObject;

/// What a client's pointer to the object points at. The table behind it begins with IDispatch and
/// goes on with the members in slot order.
struct DualFace {
  using Function = void (*)();
  const Function* table;
  HeldObject* object;
};

/// What went wrong in a call.
struct CallFault {
  HRESULT status = S_OK;  ///< what the call returns
  HRESULT number = S_OK;  ///< what the error is about
  std::string source;
  std::string description;
  int32_t argument = -1;  ///< which of those that were passed
};

/// An argument as passed, by position or by the name of its parameter.
struct Passed {
  const VARIANT* value;
  std::string_view name;
};

class HeldObject final : public ISupportErrorInfo, public IProvideClassInfo {
 public:
  /// The object's face, counted for the caller.
  static IDispatch* Wrap(std::shared_ptr<Object> object, const model::Class& of);
  /// The component's object behind a client's pointer, or none.
  static std::shared_ptr<Object> Unwrap(IUnknown* object);

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override;
  ULONG STDMETHODCALLTYPE Release() override;
  HRESULT STDMETHODCALLTYPE InterfaceSupportsErrorInfo(REFIID iid) override;
  HRESULT STDMETHODCALLTYPE GetClassInfo(ITypeInfo** info) override;

  HRESULT GetTypeInfo(UINT index, ITypeInfo** info) const;
  HRESULT GetIDsOfNames(REFIID iid, LPOLESTR* names, UINT count, DISPID* ids) const;
  HRESULT Invoke(DISPID member, REFIID iid, WORD flags, const DISPPARAMS* given, VARIANT* result,
                 EXCEPINFO* exception, UINT* wrong);
  /// A call through the dual interface: a pointer to each argument, then one to the result.
  HRESULT CallSlot(size_t slot, std::span<void* const> places);

 private:
  HeldObject(std::shared_ptr<Object> object, const model::Class& of);
  ~HeldObject();

  IDispatch* face() { return reinterpret_cast<IDispatch*>(&face_); }
  bool AddRefIfAlive();
  HRESULT NewEnumeration(VARIANT* result);
  /// Runs a member; false with the fault.
  bool Call(const model::Member& member, std::span<const Passed> passed, Variant& result,
            CallFault& fault);
  bool CallGuarded(const model::Member& member, std::span<const Passed> passed, Variant& result,
                   CallFault& fault);

  DualFace face_;
  const std::shared_ptr<Object> object_;
  const model::Class& class_;
  LONG references_ = 1;
  bool busy_ = false;
  const InUse in_use_;
};

/// The table of functions of a class's dual interface.
const DualFace::Function* DualTable(const model::Class& of);

}  // namespace korvane::com
