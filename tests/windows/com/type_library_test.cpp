// The type library in the DLL against what callers were promised, member by member.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <ocidl.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "windows/com/server_under_test.h"

namespace korvane::test {
namespace {

Reference<ITypeLib> Library() {
  Reference<ITypeLib> library;
  const std::u16string path = ServerFile();
  LoadTypeLibEx(reinterpret_cast<const OLECHAR*>(path.c_str()), REGKIND_NONE, library.Out());
  return library;
}

std::string NameOf(ITypeInfo* info, MEMBERID member = MEMBERID_NIL) {
  BSTR name = nullptr;
  info->GetDocumentation(member, &name, nullptr, nullptr, nullptr);
  const std::string text = com::TextOf(name);
  SysFreeString(name);
  return text;
}

/// A type's attributes, given back.
struct Attributes {
  explicit Attributes(ITypeInfo* of) : info(of) { info->GetTypeAttr(&held); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { info->ReleaseTypeAttr(held); }
  TYPEATTR* operator->() const { return held; }
  ITypeInfo* info;
  TYPEATTR* held = nullptr;
};

std::string TypeText(ITypeInfo* info, const TYPEDESC& type) {
  switch (type.vt) {
    case VT_I4:
      return "int32";
    case VT_BOOL:
      return "bool";
    case VT_BSTR:
      return "string";
    case VT_VARIANT:
      return "any";
    case VT_PTR: {
      // An object is a pointer to its interface, named like the class behind an underscore.
      const std::string name = TypeText(info, *type.lptdesc);
      return name.starts_with('_') ? name.substr(1) : "pointer to " + name;
    }
    case VT_USERDEFINED: {
      Reference<ITypeInfo> other;
      info->GetRefTypeInfo(type.hreftype, other.Out());
      return NameOf(other.get());
    }
    case VT_VOID:
      return "";
    default:
      return "type " + std::to_string(type.vt);
  }
}

std::string DefaultText(const PARAMDESC& parameter) {
  if (!(parameter.wParamFlags & PARAMFLAG_FOPT)) return "";
  if (!(parameter.wParamFlags & PARAMFLAG_FHASDEFAULT)) return " = nothing";
  const VARIANT& value = parameter.pparamdescex->varDefaultValue;
  switch (value.vt) {
    case VT_I4:
    case VT_INT:
      return " = " + std::to_string(value.lVal);
    case VT_BOOL:
      return value.boolVal ? " = true" : " = false";
    case VT_BSTR:
      return " = \"" + com::TextOf(value.bstrVal) + "\"";
    default:
      return " = type " + std::to_string(value.vt);
  }
}

/// One member as the list of the promised ones writes it.
std::string MemberText(ITypeInfo* info, const FUNCDESC& function) {
  std::vector<BSTR> names(static_cast<size_t>(function.cParams) + 1);
  UINT count = 0;
  info->GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &count);
  const bool put = function.invkind == INVOKE_PROPERTYPUT;
  std::string text = put ? "let " : function.invkind == INVOKE_PROPERTYGET ? "get " : "call ";
  text += NameOf(info, function.memid) + "(";
  std::string result;
  bool first = true;
  for (SHORT i = 0; i < function.cParams; ++i) {
    const ELEMDESC& parameter = function.lprgelemdescParam[i];
    const USHORT flags = parameter.paramdesc.wParamFlags;
    if (parameter.tdesc.vt != VT_PTR) return text + "not by reference)";
    std::string type = TypeText(info, *parameter.tdesc.lptdesc);
    if (flags & PARAMFLAG_FRETVAL) {
      result = " -> " + type;
      continue;
    }
    if ((flags & (PARAMFLAG_FIN | PARAMFLAG_FOUT)) != (PARAMFLAG_FIN | PARAMFLAG_FOUT)) {
      return text + "not in and out)";
    }
    // The value of a property that is written has no name in a type library.
    const auto place = static_cast<size_t>(i) + 1;
    const std::string name = put ? "value" : place < count ? com::TextOf(names[place]) : "?";
    text += (first ? "" : ", ") + name + ": " + type + DefaultText(parameter.paramdesc);
    first = false;
  }
  for (UINT i = 0; i < count; ++i) SysFreeString(names[i]);
  // The members of a dual interface are described as the script sees them: the result returned.
  const std::string returned = TypeText(info, function.elemdescFunc.tdesc);
  if (result.empty() && !returned.empty() && function.elemdescFunc.tdesc.vt != VT_HRESULT) {
    result = " -> " + returned;
  }
  return text + ")" + result;
}

struct Coclass {
  bool creatable = false;
  std::string default_interface;
};

struct Contents {
  std::map<std::string, std::vector<std::string>> interfaces;  ///< without the underscore
  std::map<std::string, Coclass> classes;
  std::vector<std::string> enumerations;
  std::vector<std::string> order;
};

/// The functions of the interface's own, in the order of their slots.
std::vector<std::string> Members(ITypeInfo* dispatch) {
  HREFTYPE other = 0;
  Reference<ITypeInfo> info;
  // -1 is the other face of a dual interface: the one with slots.
  EXPECT_EQ(dispatch->GetRefTypeOfImplType(static_cast<UINT>(-1), &other), S_OK);
  EXPECT_EQ(dispatch->GetRefTypeInfo(other, info.Out()), S_OK);
  std::vector<std::string> members;
  const Attributes attributes(info.get());
  for (UINT i = 0; i < attributes->cFuncs; ++i) {
    FUNCDESC* function = nullptr;
    EXPECT_EQ(info->GetFuncDesc(i, &function), S_OK);
    // IDispatch's seven come before them.
    EXPECT_EQ(function->oVft, static_cast<SHORT>((7 + i) * sizeof(void*)));
    EXPECT_EQ(function->callconv, CC_STDCALL);
    EXPECT_EQ(function->elemdescFunc.tdesc.vt, VT_HRESULT);
    members.push_back(MemberText(info.get(), *function));
    info->ReleaseFuncDesc(function);
  }
  return members;
}

Contents Read(ITypeLib* library) {
  Contents contents;
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    Reference<ITypeInfo> info;
    library->GetTypeInfo(i, info.Out());
    const Attributes attributes(info.get());
    const std::string name = NameOf(info.get());
    switch (attributes->typekind) {
      case TKIND_ENUM: {
        std::string line = "enum " + name;
        for (UINT j = 0; j < attributes->cVars; ++j) {
          VARDESC* member = nullptr;
          info->GetVarDesc(j, &member);
          line += " " + NameOf(info.get(), member->memid) + "=" +
                  std::to_string(member->lpvarValue->lVal);
          info->ReleaseVarDesc(member);
        }
        contents.enumerations.push_back(line);
        break;
      }
      case TKIND_DISPATCH:
        EXPECT_TRUE(attributes->wTypeFlags & TYPEFLAG_FDUAL) << name;
        EXPECT_TRUE(name.starts_with('_')) << name;
        EXPECT_EQ(attributes->guid, InterfaceId(name.substr(1))) << name;
        contents.interfaces[name.substr(1)] = Members(info.get());
        break;
      case TKIND_COCLASS: {
        EXPECT_EQ(attributes->guid, ClassId(name)) << name;
        Coclass& one = contents.classes[name];
        one.creatable = (attributes->wTypeFlags & TYPEFLAG_FCANCREATE) != 0;
        HREFTYPE implemented = 0;
        Reference<ITypeInfo> interface_info;
        info->GetRefTypeOfImplType(0, &implemented);
        info->GetRefTypeInfo(implemented, interface_info.Out());
        one.default_interface = NameOf(interface_info.get());
        contents.order.push_back(name);
        break;
      }
      default:
        ADD_FAILURE() << name << " is of kind " << attributes->typekind;
    }
  }
  return contents;
}

/// The promised lines as a type library can hold them: it does not say which any-values receive a
/// result, because each of them could.
std::vector<std::string> Promised() {
  std::ifstream file(KORVANE_SOURCE_DIR "/tests/automation/published_interface.txt");
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    for (size_t at; (at = line.find(" !")) != std::string::npos;) line.erase(at, 2);
    lines.push_back(line);
  }
  return lines;
}

TEST(TypeLibrary, HoldsWhatCallersWerePromisedMemberByMember) {
  const auto library = Library();
  ASSERT_TRUE(library);
  const Contents contents = Read(library.get());
  std::vector<std::string> lines;
  for (const std::string& name : contents.order) {
    const Coclass& one = contents.classes.at(name);
    lines.push_back("class " + name + (one.creatable ? " creatable" : " handed-out"));
    EXPECT_EQ(one.default_interface, "_" + name);
    const auto& members = contents.interfaces.at(name);
    lines.insert(lines.end(), members.begin(), members.end());
  }
  EXPECT_EQ(contents.interfaces.size(), contents.classes.size());
  lines.insert(lines.end(), contents.enumerations.begin(), contents.enumerations.end());
  const auto promised = Promised();
  ASSERT_GT(promised.size(), 150u);
  ASSERT_EQ(lines.size(), promised.size());
  for (size_t i = 0; i < lines.size(); ++i) EXPECT_EQ(lines[i], promised[i]);
}

TEST(TypeLibrary, IsTheOneOfTheArchitecture) {
  const auto library = Library();
  ASSERT_TRUE(library);
  TLIBATTR* attributes = nullptr;
  ASSERT_EQ(library->GetLibAttr(&attributes), S_OK);
  EXPECT_EQ(attributes->syskind, sizeof(void*) == 8 ? SYS_WIN64 : SYS_WIN32);
  EXPECT_EQ(attributes->wMajorVerNum, 1);
  EXPECT_EQ(attributes->wMinorVerNum, 0);
  library->ReleaseTLibAttr(attributes);
  BSTR name = nullptr;
  library->GetDocumentation(-1, &name, nullptr, nullptr, nullptr);
  EXPECT_EQ(com::TextOf(name), "Korvane_beta1");
  SysFreeString(name);
}

TEST(TypeLibrary, ItsNumbersAreThoseThatTheObjectsAnswerTo) {
  const auto library = Library();
  ASSERT_TRUE(library);
  for (const std::string_view name : {"WebInterface", "BossObject", "BasicInterface"}) {
    const auto object = Create(name);
    ASSERT_TRUE(object);
    Reference<ITypeInfo> info;
    ASSERT_EQ(library->GetTypeInfoOfGuid(InterfaceId(name), info.Out()), S_OK);
    const Attributes attributes(info.get());
    size_t compared = 0;
    for (UINT i = 0; i < attributes->cFuncs; ++i) {
      FUNCDESC* function = nullptr;
      info->GetFuncDesc(i, &function);
      // The first ones of a dual interface are IDispatch's.
      if (!(function->wFuncFlags & FUNCFLAG_FRESTRICTED)) {
        EXPECT_EQ(IdOf(object.get(), NameOf(info.get(), function->memid)), function->memid);
        ++compared;
      }
      info->ReleaseFuncDesc(function);
    }
    EXPECT_GE(compared, 15u);
  }
}

TEST(TypeLibrary, AnObjectSaysWhichTypeItIs) {
  const auto object = Create("WebInterface");
  UINT count = 0;
  ASSERT_EQ(object->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 1u);
  Reference<ITypeInfo> info;
  ASSERT_EQ(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.Out()), S_OK);
  EXPECT_EQ(NameOf(info.get()), "_WebInterface");
  EXPECT_EQ(object->GetTypeInfo(1, LOCALE_USER_DEFAULT, info.Out()), DISP_E_BADINDEX);
  Reference<IProvideClassInfo> provider;
  ASSERT_EQ(object->QueryInterface(IID_IProvideClassInfo, provider.OutVoid()), S_OK);
  ASSERT_EQ(provider->GetClassInfo(info.Out()), S_OK);
  EXPECT_EQ(NameOf(info.get()), "WebInterface");
}

}  // namespace
}  // namespace korvane::test
