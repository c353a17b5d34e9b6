// An automation object without a type library: a table of names, and one function behind them.
#pragma once

#include <span>
#include <vector>

#include "support/variant.h"

namespace korvane::test {

/// The arguments of one call: references undone, named ones in their places.
class Arguments {
 public:
  explicit Arguments(const DISPPARAMS& given);
  /// How many there are, the value of an assignment among them.
  size_t count() const { return values_.size(); }
  bool Given(size_t place) const { return place < values_.size() && !values_[place].Missing(); }
  const Variant& at(size_t place) const;
  /// The value that an assignment assigns.
  const Variant& Assigned() const;
  /// Writes into the caller's variable where one was given by reference.
  void PutBack(size_t place, const Variant& value) const;

 private:
  std::vector<Variant> values_;
  std::vector<VARIANT*> passed_;
};

class LateBound : public IDispatch {
 public:
  struct Member {
    const wchar_t* name;
    DISPID id;
    std::vector<const wchar_t*> parameters;
  };
  enum class Use { kGet, kCall, kPut };

  STDMETHOD(QueryInterface)(REFIID iid, void** object) override;
  STDMETHOD_(ULONG, AddRef)() override;
  STDMETHOD_(ULONG, Release)() override;
  STDMETHOD(GetTypeInfoCount)(UINT* count) override;
  STDMETHOD(GetTypeInfo)(UINT, LCID, ITypeInfo**) override;
  STDMETHOD(GetIDsOfNames)(REFIID, LPOLESTR* names, UINT count, LCID, DISPID* ids) override;
  STDMETHOD(Invoke)
  (DISPID member, REFIID, LCID, WORD flags, DISPPARAMS* parameters, VARIANT* result,
   EXCEPINFO* exception, UINT*) override;

  /// Objects that are alive.
  static LONG alive();

 protected:
  LateBound(const wchar_t* source, std::span<const Member> members);
  LateBound(const LateBound&) = delete;
  LateBound& operator=(const LateBound&) = delete;
  virtual ~LateBound();

  /// Throws Fault. A reading of a property and a call of a method cannot be told apart where the
  /// caller is a script; `use` is kPut for assignments only.
  virtual Variant Do(DISPID member, Use use, const Arguments& arguments) = 0;
  /// Called with each name that a caller looks up.
  virtual void Asked(const wchar_t* name);

 private:
  const wchar_t* source_;
  std::span<const Member> members_;
  LONG references_ = 1;
};

}  // namespace korvane::test
