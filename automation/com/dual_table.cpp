// The tables of functions behind the dual interfaces. Every argument and every result of a member
// is a pointer, so the functions of all classes differ in no more than their slot and how many
// pointers they take: they are made here, one for each of both.
#include <array>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "held_object.h"

namespace korvane::com {

namespace {

using Function = DualFace::Function;

constexpr size_t kMostSlots = 64;
constexpr size_t kMostPointers = 16;

HRESULT STDMETHODCALLTYPE QueryInterface(DualFace* face, REFIID iid, void** object) {
  return face->object->QueryInterface(iid, object);
}
ULONG STDMETHODCALLTYPE AddRef(DualFace* face) { return face->object->AddRef(); }
ULONG STDMETHODCALLTYPE Release(DualFace* face) { return face->object->Release(); }
HRESULT STDMETHODCALLTYPE GetTypeInfoCount(DualFace*, UINT* count) {
  if (!count) return E_POINTER;
  *count = 1;
  return S_OK;
}
HRESULT STDMETHODCALLTYPE GetTypeInfo(DualFace* face, UINT index, LCID, ITypeInfo** info) {
  return face->object->GetTypeInfo(index, info);
}
HRESULT STDMETHODCALLTYPE GetIDsOfNames(DualFace* face, REFIID iid, LPOLESTR* names, UINT count,
                                        LCID, DISPID* ids) {
  return face->object->GetIDsOfNames(iid, names, count, ids);
}
HRESULT STDMETHODCALLTYPE Invoke(DualFace* face, DISPID member, REFIID iid, LCID, WORD flags,
                                 DISPPARAMS* given, VARIANT* result, EXCEPINFO* exception,
                                 UINT* wrong) {
  return face->object->Invoke(member, iid, flags, given, result, exception, wrong);
}

template <size_t>
using Pointer = void*;

template <size_t Slot, size_t... I>
struct Entry {
  static HRESULT STDMETHODCALLTYPE Call(DualFace* face, Pointer<I>... places) {
    const std::array<void*, sizeof...(I)> all = {places...};
    return face->object->CallSlot(Slot, all);
  }
};

template <class F>
Function Erased(F function) {
  return reinterpret_cast<Function>(function);
}

template <size_t Slot, size_t... I>
Function EntryOf(std::index_sequence<I...>) {
  return Erased(&Entry<Slot, I...>::Call);
}

/// The functions of one slot, by how many pointers they take.
template <size_t Slot, size_t... Counts>
std::array<Function, kMostPointers> EntriesOf(std::index_sequence<Counts...>) {
  return {EntryOf<Slot>(std::make_index_sequence<Counts>())...};
}

template <size_t... Slots>
Function FindEntry(size_t slot, size_t pointers, std::index_sequence<Slots...>) {
  static const std::array<Function, kMostPointers> entries[] = {
      EntriesOf<Slots>(std::make_index_sequence<kMostPointers>())...};
  return entries[slot][pointers];
}

std::vector<Function> MakeTable(const model::Class& of) {
  std::vector<Function> table = {
      Erased(&QueryInterface), Erased(&AddRef),        Erased(&Release), Erased(&GetTypeInfoCount),
      Erased(&GetTypeInfo),    Erased(&GetIDsOfNames), Erased(&Invoke)};
  for (size_t slot = 0; slot < of.members.size(); ++slot) {
    const model::Member& member = of.members[slot];
    const size_t pointers =
        member.parameters.size() + (member.result == model::Type::kNothing ? 0 : 1);
    table.push_back(FindEntry(slot, pointers, std::make_index_sequence<kMostSlots>()));
  }
  return table;
}

}  // namespace

const Function* DualTable(const model::Class& of) {
  static std::mutex mutex;
  static std::unordered_map<const model::Class*, std::vector<Function>> tables;
  const std::lock_guard lock(mutex);
  auto found = tables.find(&of);
  if (found == tables.end()) found = tables.emplace(&of, MakeTable(of)).first;
  return found->second.data();
}

}  // namespace korvane::com
