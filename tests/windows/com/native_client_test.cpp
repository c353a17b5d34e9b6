// A client in a compiled language: calls by name and number, through the slots of the dual
// interfaces, and what it hears of faults.
#include <gtest/gtest.h>
#include <oaidl.h>
#include <ocidl.h>

#include <cmath>
#include <limits>

#include "windows/com/server_under_test.h"

namespace korvane::test {
namespace {

constexpr HRESULT Raised(int number) {
  return static_cast<HRESULT>(0x800A0000u | static_cast<unsigned>(number));
}

TEST(NativeClient, OnlyTheThreeEntranceClassesCanBeCreated) {
  for (const char* name : {"MailMessage", "MailMessages", "MailAttachment", "MailAttachments",
                           "MultipartEntity", "MailUser", "UUAtcmt"}) {
    Reference<IClassFactory> factory;
    EXPECT_EQ(GetClassObject(ClassId(name), IID_IClassFactory, factory.OutVoid()),
              CLASS_E_CLASSNOTAVAILABLE)
        << name;
  }
  for (const char* name : {"WebInterface", "BossObject", "BasicInterface"}) {
    EXPECT_TRUE(Create(name)) << name;
  }
}

TEST(NativeClient, AnObjectCannotBeMadePartOfAnother) {
  Reference<IClassFactory> factory;
  ASSERT_EQ(GetClassObject(ClassId("BossObject"), IID_IClassFactory, factory.OutVoid()), S_OK);
  Reference<IUnknown> object;
  EXPECT_EQ(factory->CreateInstance(factory.get(), IID_IUnknown, object.OutVoid()),
            CLASS_E_NOAGGREGATION);
  EXPECT_FALSE(object);
}

TEST(NativeClient, NamesAreFoundInAnyCaseAndParametersByTheirNames) {
  const auto web = Create("WebInterface");
  EXPECT_EQ(IdOf(web.get(), "getmessage"), IdOf(web.get(), "GetMessage"));
  EXPECT_EQ(IdOf(web.get(), "NoSuchMember"), DISPID_UNKNOWN);
  std::u16string member = u"GetMessage";
  std::u16string third = u"SMESSAGESEPARATOR";
  std::u16string none = u"sNothing";
  LPOLESTR names[] = {reinterpret_cast<LPOLESTR>(member.data()),
                      reinterpret_cast<LPOLESTR>(third.data()),
                      reinterpret_cast<LPOLESTR>(none.data())};
  DISPID ids[3] = {};
  EXPECT_EQ(web->GetIDsOfNames(IID_NULL, names, 2, 0, ids), S_OK);
  EXPECT_EQ(ids[1], 2);
  EXPECT_EQ(web->GetIDsOfNames(IID_NULL, names, 3, 0, ids), DISP_E_UNKNOWNNAME);
  EXPECT_EQ(ids[2], DISPID_UNKNOWN);
  EXPECT_EQ(web->GetIDsOfNames(IID_IUnknown, names, 1, 0, ids), DISP_E_UNKNOWNINTERFACE);
}

TEST(NativeClient, PropertiesAreWrittenAndRead) {
  const auto web = Create("WebInterface");
  EXPECT_EQ(Put(web.get(), "UserId", Int(7)).status, S_OK);
  EXPECT_EQ(Call(web.get(), "UserId").Number(), 7);
  EXPECT_EQ(Put(web.get(), "Username", Text("città €")).status, S_OK);
  EXPECT_EQ(Call(web.get(), "Username").Text(), "città €");
  EXPECT_EQ(Call(web.get(), "Version").Text(), "Database");
  EXPECT_EQ(Call(Create("BasicInterface").get(), "Version").Text(), "SMS");
}

TEST(NativeClient, AFreshObjectReportsNumberZeroAndNoText) {
  for (const char* name : {"WebInterface", "BossObject", "BasicInterface"}) {
    const auto object = Create(name);
    const Outcome number = Call(object.get(), "GetLastError");
    EXPECT_EQ(number.value.vt, VT_I4);
    EXPECT_EQ(number.Number(), 0);
    const Outcome text = Call(object.get(), "GetLastErrorDesc");
    EXPECT_EQ(text.value.vt, VT_BSTR);
    EXPECT_EQ(text.Text(), "");
  }
}

TEST(NativeClient, ABooleanResultIsMinusOneOrZero) {
  const auto web = Create("WebInterface");
  const Outcome done = Call(web.get(), "Finish");
  EXPECT_EQ(done.value.vt, VT_BOOL);
  EXPECT_EQ(done.value.boolVal, -1);
  const Outcome refused = Call(web.get(), "Init", {Null()});
  EXPECT_EQ(refused.value.vt, VT_BOOL);
  EXPECT_EQ(refused.value.boolVal, 0);
  EXPECT_EQ(Call(web.get(), "GetLastError").Number(), 1086);
}

TEST(NativeClient, TheGuardRaisesItsNumberWithSourceAndDescription) {
  struct Guarded {
    const char* name;
    const char* member;
    int number;
    std::vector<VARIANT> arguments;
  };
  const Guarded guarded[] = {
      {"WebInterface", "VerifyAccount", 1500, {}},
      {"WebInterface", "GetListMessagesInBox", 1500, {Int(1)}},
      {"WebInterface", "GetMessage", 1500, {Int(1)}},
      {"WebInterface", "DeleteMessage", 1500, {Int(1)}},
      {"WebInterface", "NewMessage", 1500, {}},
      {"WebInterface", "BackgroundClean", 1500, {}},
      {"BasicInterface", "GetListMessagesInBox", 1499, {Int(1)}},
      {"BasicInterface", "GetMessage", 1499, {Int(1)}},
      {"BasicInterface", "GetMessageUIDL", 1499, {Int(1), Text("x")}},
      {"BasicInterface", "DeleteMessage", 1499, {Int(1)}},
      {"BasicInterface", "DeleteMessageUIDL", 1499, {Int(1), Text("x")}},
  };
  for (const Guarded& one : guarded) {
    const auto object = Create(one.name);
    const Outcome raised = Call(object.get(), one.member, one.arguments);
    EXPECT_EQ(raised.status, DISP_E_EXCEPTION) << one.member;
    EXPECT_EQ(raised.number, Raised(one.number)) << one.member;
    EXPECT_EQ(raised.source, one.name);
    EXPECT_EQ(raised.description, "Oggetto non inizializzato");
    EXPECT_EQ(Call(object.get(), "GetLastError").Number(), 0);
  }
}

TEST(NativeClient, NobodyHasToListenToAnException) {
  const auto web = Create("WebInterface");
  DISPPARAMS none = {};
  EXPECT_EQ(web->Invoke(IdOf(web.get(), "NewMessage"), IID_NULL, 0, DISPATCH_METHOD, &none, nullptr,
                        nullptr, nullptr),
            DISP_E_EXCEPTION);
}

TEST(NativeClient, AWrongArgumentSaysWhichOne) {
  const auto web = Create("WebInterface");
  const Outcome type = Call(web.get(), "GetMessage", {Int(1), Truth(true), Null()});
  EXPECT_EQ(type.status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(type.wrong, 0u) << "the last one comes first";
  const Outcome first = Call(web.get(), "GetMessage", {Text("abc"), Truth(true), Text("")});
  EXPECT_EQ(first.status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(first.wrong, 2u);
  EXPECT_EQ(Call(web.get(), "GetMessage", {Real(1e12)}).status, DISP_E_OVERFLOW);
  EXPECT_EQ(Call(web.get(), "GetMessage", {Text("99999999999")}).status, DISP_E_OVERFLOW);
  EXPECT_EQ(Call(web.get(), "GetMessage", {Real(std::nan(""))}).status, DISP_E_OVERFLOW);
  EXPECT_EQ(Call(web.get(), "GetMessage").status, DISP_E_PARAMNOTOPTIONAL);
  EXPECT_EQ(Call(web.get(), "GetMessage", {Missing()}).status, DISP_E_PARAMNOTOPTIONAL);
  EXPECT_EQ(Call(web.get(), "Finish", {Int(1)}).status, DISP_E_BADPARAMCOUNT);
  EXPECT_EQ(Put(web.get(), "UserId", Text("x")).status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Call(web.get(), "Init", {Object(Create("BasicInterface").get())}).status,
            DISP_E_TYPEMISMATCH);
}

TEST(NativeClient, ANumberAsATextIsThatNumber) {
  const auto web = Create("WebInterface");
  EXPECT_EQ(Put(web.get(), "UserId", Text(" 12 ")).status, S_OK);
  EXPECT_EQ(Call(web.get(), "UserId").Number(), 12);
  EXPECT_EQ(Put(web.get(), "UserId", Real(2.5)).status, S_OK);
  EXPECT_EQ(Call(web.get(), "UserId").Number(), 2) << "half to even";
  EXPECT_EQ(Put(web.get(), "Username", Int(12)).status, S_OK);
  EXPECT_EQ(Call(web.get(), "Username").Text(), "12");
}

TEST(NativeClient, WhatIsNotThereIsNoMember) {
  const auto web = Create("WebInterface");
  DISPPARAMS none = {};
  for (const DISPID id : {DISPID{-7}, DISPID{12345}, std::numeric_limits<DISPID>::min()}) {
    EXPECT_EQ(web->Invoke(id, IID_NULL, 0, DISPATCH_METHOD, &none, nullptr, nullptr, nullptr),
              DISP_E_MEMBERNOTFOUND);
  }
  EXPECT_EQ(Put(web.get(), "Version", Text("x")).status, DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(web.get(), "ConnDataBase").status, DISP_E_MEMBERNOTFOUND) << "it is write-only";
  // Looking at an object must not run its operations.
  EXPECT_EQ(Call(web.get(), "BackgroundClean", {}, DISPATCH_PROPERTYGET).status,
            DISP_E_MEMBERNOTFOUND);
}

TEST(NativeClient, ACallThatIsMadeUpIsRefused) {
  const auto web = Create("WebInterface");
  const DISPID finish = IdOf(web.get(), "Finish");
  DISPPARAMS given = {};
  const auto invoke = [&](REFIID iid, DISPPARAMS* parameters) {
    return web->Invoke(finish, iid, 0, DISPATCH_METHOD, parameters, nullptr, nullptr, nullptr);
  };
  EXPECT_EQ(invoke(IID_NULL, nullptr), E_INVALIDARG);
  EXPECT_EQ(invoke(IID_IDispatch, &given), DISP_E_UNKNOWNINTERFACE);
  given.cArgs = 1;
  EXPECT_EQ(invoke(IID_NULL, &given), E_INVALIDARG);
  given.cArgs = 0;
  given.cNamedArgs = 1;
  EXPECT_EQ(invoke(IID_NULL, &given), E_INVALIDARG);
  VARIANT one = Int(1);
  DISPID named = 99;
  given.cArgs = 1;
  given.rgvarg = &one;
  EXPECT_EQ(invoke(IID_NULL, &given), E_INVALIDARG);
  given.rgdispidNamedArgs = &named;
  EXPECT_EQ(invoke(IID_NULL, &given), DISP_E_PARAMNOTFOUND);
  void* nothing = nullptr;
  EXPECT_EQ(web->QueryInterface(IID_IStream, &nothing), E_NOINTERFACE);
  EXPECT_EQ(nothing, nullptr);
  EXPECT_EQ(web->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(web->GetTypeInfoCount(nullptr), E_POINTER);
  EXPECT_EQ(web->GetTypeInfo(0, 0, nullptr), E_POINTER);
}

TEST(NativeClient, ArgumentsGoByName) {
  const auto basic = Create("BasicInterface");
  // Init(bOpenConnection := False)
  VARIANT no = Truth(false);
  DISPID named = 0;
  DISPPARAMS given = {};
  given.rgvarg = &no;
  given.rgdispidNamedArgs = &named;
  given.cArgs = given.cNamedArgs = 1;
  Variant result;
  ASSERT_EQ(basic->Invoke(IdOf(basic.get(), "Init"), IID_NULL, 0, DISPATCH_METHOD, &given, &result,
                          nullptr, nullptr),
            S_OK);
  EXPECT_EQ(result.boolVal, VARIANT_TRUE);
  // GetMessage(1, sMessageSeparator := "x", lMessageId := 2): given twice.
  VARIANT arguments[] = {Text("x"), Int(2), Int(1)};
  DISPID both[] = {1, 0};
  given.rgvarg = arguments;
  given.rgdispidNamedArgs = both;
  given.cArgs = 3;
  given.cNamedArgs = 2;
  EXPECT_EQ(basic->Invoke(IdOf(basic.get(), "GetMessage"), IID_NULL, 0, DISPATCH_METHOD, &given,
                          nullptr, nullptr, nullptr),
            DISP_E_PARAMNOTFOUND);
  // GetMessageUIDL(sUIDL_mail := "x", lMessageId := 2): there is no session.
  VARIANT reversed[] = {Text("x"), Int(2)};
  given.rgvarg = reversed;
  given.cArgs = 2;
  Variant none;
  EXPECT_EQ(basic->Invoke(IdOf(basic.get(), "GetMessageUIDL"), IID_NULL, 0, DISPATCH_METHOD, &given,
                          &none, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(none.vt, VT_DISPATCH);
  EXPECT_EQ(none.pdispVal, nullptr) << "no object is Nothing";
  EXPECT_NE(Call(basic.get(), "GetLastError").Number(), 0);
}

// The slots: seven of IDispatch, then the members in their order, each argument a pointer.
template <class... Places>
HRESULT CallSlot(IDispatch* object, size_t number, Places... places) {
  using Slot = HRESULT(STDMETHODCALLTYPE*)(IDispatch*, Places...);
  void** table = *reinterpret_cast<void***>(object);
  return reinterpret_cast<Slot>(reinterpret_cast<void (*)()>(table[6 + number]))(object, places...);
}

TEST(DualInterface, IsWhatAClientOfTheTypeLibraryAsksFor) {
  for (const char* name : {"WebInterface", "BossObject", "BasicInterface"}) {
    const auto object = Create(name);
    Reference<IDispatch> dual;
    EXPECT_EQ(object->QueryInterface(InterfaceId(name), dual.OutVoid()), S_OK);
    EXPECT_EQ(dual.get(), object.get());
    Reference<IUnknown> other;
    EXPECT_EQ(object->QueryInterface(InterfaceId("MailUser"), other.OutVoid()), E_NOINTERFACE);
    Reference<ISupportErrorInfo> errors;
    ASSERT_EQ(object->QueryInterface(IID_ISupportErrorInfo, errors.OutVoid()), S_OK);
    EXPECT_EQ(errors->InterfaceSupportsErrorInfo(InterfaceId(name)), S_OK);
    EXPECT_EQ(errors->InterfaceSupportsErrorInfo(IID_IDispatch), S_FALSE);
  }
}

TEST(DualInterface, TheSlotsAreTheMembersInTheirOrder) {
  const auto web = Create("WebInterface");
  BSTR text = nullptr;
  ASSERT_EQ(CallSlot(web.get(), 1, &text), S_OK);
  EXPECT_EQ(com::TextOf(text), "Database");
  SysFreeString(text);
  // 2 and 3: Username, written and read. 12 and 13: UserId.
  BSTR user = com::NewText("ann");
  ASSERT_EQ(CallSlot(web.get(), 2, &user), S_OK);
  ASSERT_EQ(CallSlot(web.get(), 3, &text), S_OK);
  EXPECT_EQ(com::TextOf(text), "ann");
  SysFreeString(text);
  SysFreeString(user);
  LONG id = 5;
  ASSERT_EQ(CallSlot(web.get(), 12, &id), S_OK);
  id = 0;
  ASSERT_EQ(CallSlot(web.get(), 13, &id), S_OK);
  EXPECT_EQ(id, 5);
  // 17: GetLastError, an any-value. 20: Finish.
  Variant number;
  ASSERT_EQ(CallSlot(web.get(), 17, static_cast<VARIANT*>(&number)), S_OK);
  EXPECT_EQ(number.vt, VT_I4);
  VARIANT_BOOL done = VARIANT_FALSE;
  ASSERT_EQ(CallSlot(web.get(), 20, &done), S_OK);
  EXPECT_EQ(done, VARIANT_TRUE);
}

TEST(DualInterface, TheLongestMemberTakesAllItsPointers) {
  const auto web = Create("WebInterface");
  LONG box = 1, server = -10, order = 0, direction = 1, page = -1, second = 1;
  VARIANT_BOOL headers = VARIANT_TRUE, remove = VARIANT_FALSE, first = VARIANT_FALSE;
  BSTR separator = nullptr;
  Variant pages, mails;
  IDispatch* list = web.get();
  SetErrorInfo(0, nullptr);
  const HRESULT status = CallSlot(web.get(), 22, &box, &server, &headers, &remove, &separator,
                                  &first, &order, &direction, &page, static_cast<VARIANT*>(&pages),
                                  static_cast<VARIANT*>(&mails), &second, &list);
  EXPECT_EQ(status, Raised(1500));
  EXPECT_EQ(list, nullptr) << "a result is cleared before the call";
  Reference<IErrorInfo> info;
  ASSERT_EQ(GetErrorInfo(0, info.Out()), S_OK);
  BSTR source = nullptr, description = nullptr;
  info->GetSource(&source);
  info->GetDescription(&description);
  EXPECT_EQ(com::TextOf(source), "WebInterface");
  EXPECT_EQ(com::TextOf(description), "Oggetto non inizializzato");
  SysFreeString(source);
  SysFreeString(description);
  GUID guid;
  info->GetGUID(&guid);
  EXPECT_EQ(guid, InterfaceId("WebInterface"));
}

TEST(DualInterface, APointerThatIsNoneIsRefused) {
  const auto web = Create("WebInterface");
  EXPECT_EQ(CallSlot(web.get(), 1, static_cast<BSTR*>(nullptr)), E_POINTER);
  EXPECT_EQ(CallSlot(web.get(), 12, static_cast<LONG*>(nullptr)), E_POINTER);
  VARIANT_BOOL done;
  EXPECT_EQ(
      CallSlot(web.get(), 19, static_cast<VARIANT*>(nullptr), static_cast<LONG*>(nullptr), &done),
      E_POINTER);
}

TEST(DualInterface, TheTypeLibrarysOwnCallerReachesTheSlots) {
  const auto web = Create("WebInterface");
  Reference<ITypeInfo> info;
  ASSERT_EQ(web->GetTypeInfo(0, LOCALE_USER_DEFAULT, info.Out()), S_OK);
  // Named, with texts for numbers: the caller converts, and goes through the slot.
  VARIANT value = Text("77");
  DISPID assigned = DISPID_PROPERTYPUT;
  DISPPARAMS given = {&value, &assigned, 1, 1};
  ASSERT_EQ(info->Invoke(web.get(), IdOf(web.get(), "UserId"), DISPATCH_PROPERTYPUT, &given,
                         nullptr, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(Call(web.get(), "UserId").Number(), 77);
  Variant result;
  DISPPARAMS none = {};
  ASSERT_EQ(info->Invoke(web.get(), IdOf(web.get(), "Version"), DISPATCH_PROPERTYGET, &none,
                         &result, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(com::TextOf(result.bstrVal), "Database");
}

}  // namespace
}  // namespace korvane::test
