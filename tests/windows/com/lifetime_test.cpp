// References, and the server's own life: registered, loaded, in use, unloaded; and objects that are
// used from another apartment.
#include <windows.h>

#include <gtest/gtest.h>
#include <objbase.h>
#include <oleauto.h>

#include <memory>
#include <thread>

#include "automation/com/identifiers.h"
#include "windows/com/fake_ado.h"
#include "windows/com/server_under_test.h"

namespace korvane::test {
namespace {

constexpr wchar_t kSettings[] = L"SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane4711\\KorvaneDll";

/// An installation's settings, in the registry while it lives.
class Settings {
 public:
  Settings() {
    for (const wchar_t* name : {L"PathAtcmts", L"PathAtcmtsInvio", L"URLAtcmts", L"PathMessages",
                                L"PathLog", L"PathBackgrDownloader", L"DbConnectionString"}) {
      RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSettings, name, REG_SZ, L"Z:\\tmp", 14);
    }
    const DWORD time = 7000;
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, kSettings, L"ServerTimeout", REG_DWORD, &time, 4);
  }
  Settings(const Settings&) = delete;
  Settings& operator=(const Settings&) = delete;
  ~Settings() {
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Tarsel_IS_App\\KorvaneMulti\\Korvane4711");
  }
};

/// A facade that is ready, over a database that is asked for nothing.
class ReadyFacade {
 public:
  ReadyFacade() {
    *connection.Out() = NewFakeConnection(database);
    const auto boss = Create("BossObject");
    EXPECT_TRUE(Call(boss.get(), "Init", {Int(4711)}).Truth());
    web = Create("WebInterface");
    EXPECT_EQ(Put(web.get(), "UserId", Int(7)).status, S_OK);
    EXPECT_EQ(Put(web.get(), "ConnDataBase", Object(connection.get())).status, S_OK);
    EXPECT_TRUE(Call(web.get(), "Init", {Object(boss.get()), Int(-10)}).Truth());
  }

  const Settings settings;
  FakeDatabase database;
  const FakeRecordsets recordsets{database};
  Reference<IDispatch> connection;
  Reference<IDispatch> web;
};

TEST(Lifetime, TheServerMayGoWhenNobodyHoldsAnything) {
  EXPECT_EQ(CanUnloadNow(), S_OK);
  auto boss = Create("BossObject");
  EXPECT_EQ(CanUnloadNow(), S_FALSE);
  Reference<ITypeInfo> info;
  ASSERT_EQ(boss->GetTypeInfo(0, 0, info.Out()), S_OK);
  boss = Reference<IDispatch>();
  EXPECT_EQ(CanUnloadNow(), S_OK);
  Reference<IClassFactory> factory;
  ASSERT_EQ(GetClassObject(ClassId("BossObject"), IID_IClassFactory, factory.OutVoid()), S_OK);
  EXPECT_EQ(CanUnloadNow(), S_FALSE);
  factory->LockServer(TRUE);
  factory = Reference<IClassFactory>();
  EXPECT_EQ(CanUnloadNow(), S_FALSE);
  ASSERT_EQ(GetClassObject(ClassId("BossObject"), IID_IClassFactory, factory.OutVoid()), S_OK);
  factory->LockServer(FALSE);
  factory = Reference<IClassFactory>();
  EXPECT_EQ(CanUnloadNow(), S_OK);
}

TEST(Lifetime, AMessageOutlivesItsFacadeAndItsAttachmentTheMessage) {
  {
    ReadyFacade ready;
    auto message = Call(ready.web.get(), "NewMessage").Object();
    ASSERT_TRUE(message);
    ready.web = Reference<IDispatch>();
    EXPECT_EQ(Put(message.get(), "NM_Subject", Text("oggetto €")).status, S_OK);
    EXPECT_EQ(Call(message.get(), "Subject", {Int(0)}).Text(), "oggetto €");
    const auto attachment = Call(message.get(), "NM_NewAttachment").Object();
    ASSERT_TRUE(attachment);
    message = Reference<IDispatch>();
    EXPECT_EQ(Put(attachment.get(), "NM_FileName", Text("a.txt")).status, S_OK);
    EXPECT_EQ(Call(attachment.get(), "Name").Text(), "a.txt");
    EXPECT_EQ(CanUnloadNow(), S_FALSE);
  }
  EXPECT_EQ(CanUnloadNow(), S_OK);
  EXPECT_EQ(FakesAlive(), 0);
}

TEST(Lifetime, ObjectsAreReleasedInAnyOrder) {
  for (int first = 0; first < 4; ++first) {
    ReadyFacade ready;
    const auto message = Call(ready.web.get(), "NewMessage").Object();
    Put(message.get(), "NM_From", Text("ann@example.com"));
    const auto made = Call(message.get(), "NM_NewAttachment").Object();
    Put(made.get(), "NM_FileName", Text("b.txt"));
    std::vector<Reference<IDispatch>> objects = {ready.web, message, made,
                                                 Call(message.get(), "GetAttachments").Object()};
    ready.web = Reference<IDispatch>();
    std::rotate(objects.begin(), objects.begin() + first, objects.end());
    for (auto& object : objects) object = Reference<IDispatch>();
  }
  EXPECT_EQ(CanUnloadNow(), S_OK);
}

TEST(Lifetime, TheSameObjectIsTheSameForAutomationToo) {
  ReadyFacade ready;
  const auto message = Call(ready.web.get(), "NewMessage").Object();
  Call(message.get(), "NM_NewAttachment");
  const auto first = Call(message.get(), "GetAttachments").Object();
  const auto again = Call(message.get(), "GetAttachments").Object();
  ASSERT_TRUE(first);
  EXPECT_EQ(first.get(), again.get());
  const auto one = Call(first.get(), "ItemIndex", {Int(1)}).Object();
  const auto same = Call(first.get(), "ItemIndex", {Int(1)}).Object();
  ASSERT_TRUE(one);
  EXPECT_EQ(one.get(), same.get());
  EXPECT_EQ(Call(first.get(), "Count").Number(), 1);
  const Outcome none = Call(first.get(), "ItemIndex", {Int(2)});
  EXPECT_EQ(none.value.vt, VT_DISPATCH);
  EXPECT_FALSE(none.Object());
}

TEST(Lifetime, ACollectionIsWalked) {
  ReadyFacade ready;
  const auto message = Call(ready.web.get(), "NewMessage").Object();
  for (const char* name : {"a.txt", "b.txt", "c.txt"}) {
    Put(Call(message.get(), "NM_NewAttachment").Object().get(), "NM_FileName", Text(name));
  }
  const auto all = Call(message.get(), "GetAttachments").Object();
  DISPPARAMS none = {};
  Variant result;
  ASSERT_EQ(all->Invoke(DISPID_NEWENUM, IID_NULL, 0, DISPATCH_PROPERTYGET | DISPATCH_METHOD, &none,
                        &result, nullptr, nullptr),
            S_OK);
  ASSERT_EQ(result.vt, VT_UNKNOWN);
  // Some callers ask without saying that it is a property.
  Variant again;
  EXPECT_EQ(all->Invoke(DISPID_NEWENUM, IID_NULL, 0, 0, &none, &again, nullptr, nullptr), S_OK);
  EXPECT_EQ(IdOf(all.get(), "_NewEnum"), DISPID_NEWENUM);
  Reference<IEnumVARIANT> walk;
  ASSERT_EQ(result.punkVal->QueryInterface(IID_IEnumVARIANT, walk.OutVoid()), S_OK);
  std::string names;
  for (;;) {
    Variant item;
    ULONG fetched = 0;
    if (walk->Next(1, &item, &fetched) != S_OK) break;
    names += Call(item.pdispVal, "Name").Text() + " ";
  }
  EXPECT_EQ(names, "a.txt b.txt c.txt ");
  EXPECT_EQ(walk->Reset(), S_OK);
  EXPECT_EQ(walk->Skip(2), S_OK);
  Reference<IEnumVARIANT> copy;
  ASSERT_EQ(walk->Clone(copy.Out()), S_OK);
  Variant items[3];
  ULONG fetched = 0;
  EXPECT_EQ(copy->Next(3, items, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 1u);
  EXPECT_EQ(walk->Skip(5), S_FALSE);
  EXPECT_EQ(walk->Next(1, nullptr, nullptr), E_POINTER);
  // The default member of a collection is Item.
  const LONG id = Call(items[0].pdispVal, "Id").Number();
  VARIANT key = Int(id);
  DISPPARAMS given = {&key, nullptr, 1, 0};
  Variant item;
  ASSERT_EQ(
      all->Invoke(DISPID_VALUE, IID_NULL, 0, DISPATCH_PROPERTYGET, &given, &item, nullptr, nullptr),
      S_OK);
  EXPECT_EQ(item.pdispVal, items[0].pdispVal);
}

TEST(Lifetime, AResultIsWrittenIntoTheCallersVariableOfEachKind) {
  ReadyFacade ready;
  const auto message = Call(ready.web.get(), "NewMessage").Object();
  Put(message.get(), "NM_MessageBody", Text("testo €"));
  Variant variable = Variant::Text("old");
  EXPECT_TRUE(Call(message.get(), "MessageBody", {ByReference(variable), Int(1), Int(0)}).Truth());
  EXPECT_EQ(com::TextOf(variable.bstrVal), "testo €");
  BSTR text = com::NewText("old");
  VARIANT reference = {};
  reference.vt = VT_BYREF | VT_BSTR;
  reference.pbstrVal = &text;
  EXPECT_TRUE(Call(message.get(), "MessageBody", {reference, Int(1), Int(0)}).Truth());
  EXPECT_EQ(com::TextOf(text), "testo €");
  SysFreeString(text);
  // An argument that receives nothing stays as it was passed.
  Variant format = Variant::Text("0");
  EXPECT_TRUE(
      Call(message.get(), "MessageBody", {ByReference(variable), Int(1), ByReference(format)})
          .Truth());
  EXPECT_EQ(format.vt, VT_BSTR);
  LONG number = 5;
  reference.vt = VT_BYREF | VT_I4;
  reference.plVal = &number;
  const Outcome wrong = Call(message.get(), "MessageBody", {reference, Int(1), Int(0)});
  EXPECT_EQ(wrong.status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(wrong.wrong, 2u);
  EXPECT_EQ(number, 5);
}

class Registered : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(RegisterServer(), S_OK); }
  void TearDown() override {
    EXPECT_EQ(UnregisterServer(), S_OK);
    CoFreeUnusedLibraries();
  }
  static std::string Value(const std::string& key, const wchar_t* name = nullptr) {
    wchar_t text[1024] = {};
    DWORD size = sizeof text;
    const std::u16string path = korvane::ToUtf16(key);
    if (RegGetValueW(HKEY_CLASSES_ROOT, reinterpret_cast<const wchar_t*>(path.c_str()), name,
                     RRF_RT_REG_SZ, nullptr, text, &size) != ERROR_SUCCESS) {
      return "none";
    }
    return korvane::FromUtf16(com::TextOf(text, std::wcslen(text)));
  }
  static HRESULT CreateByName(const wchar_t* name, Reference<IDispatch>& object) {
    CLSID id;
    const HRESULT status = CLSIDFromProgID(name, &id);
    if (FAILED(status)) return status;
    return CoCreateInstance(id, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, object.OutVoid());
  }
};

TEST_F(Registered, TheThreeEntranceClassesAreCreatedByName) {
  for (const wchar_t* name : {L"Korvane_beta1.WebInterface", L"Korvane_beta1.BossObject",
                              L"Korvane_beta1.BasicInterface"}) {
    Reference<IDispatch> object;
    ASSERT_EQ(CreateByName(name, object), S_OK);
    EXPECT_EQ(Call(object.get(), "GetLastError").Number(), 0);
  }
  Reference<IDispatch> none;
  EXPECT_EQ(CreateByName(L"Korvane_beta1.MailMessage", none), CO_E_CLASSSTRING);
}

TEST_F(Registered, TheEntriesSayWhereTheServerIsAndHowItIsUsed) {
  const auto* ids = com::FindIdentifiers("WebInterface");
  const std::string by_id = "CLSID\\{" + std::string(ids->class_id) + "}";
  EXPECT_EQ(Value("Korvane_beta1.WebInterface\\CLSID"), "{" + std::string(ids->class_id) + "}");
  EXPECT_EQ(Value(by_id + "\\InprocServer32"), korvane::FromUtf16(ServerFile()));
  EXPECT_EQ(Value(by_id + "\\InprocServer32", L"ThreadingModel"), "Apartment");
  EXPECT_EQ(Value(by_id + "\\ProgID"), "Korvane_beta1.WebInterface");
  EXPECT_EQ(Value(by_id + "\\TypeLib"), "{" + std::string(com::kLibraryId) + "}");
  for (const auto& one : com::Identifiers()) {
    const std::string by_interface = "Interface\\{" + std::string(one.interface_id) + "}";
    EXPECT_EQ(Value(by_interface), "_" + std::string(one.name));
    EXPECT_NE(Value(by_interface + "\\TypeLib"), "none");
  }
  Reference<ITypeLib> library;
  GUID id = ClassId("WebInterface");
  ASSERT_EQ(CLSIDFromString(L"{5f3aea16-a508-59ac-8f13-85621b3ccdb8}", &id), S_OK);
  EXPECT_EQ(LoadRegTypeLib(id, 1, 0, LOCALE_NEUTRAL, library.Out()), S_OK);
}

TEST_F(Registered, NothingIsLeftWhenItIsTakenBackAndTwiceIsNoFault) {
  ASSERT_EQ(RegisterServer(), S_OK) << "over itself";
  ASSERT_EQ(UnregisterServer(), S_OK);
  EXPECT_EQ(Value("Korvane_beta1.WebInterface\\CLSID"), "none");
  for (const auto& one : com::Identifiers()) {
    EXPECT_EQ(Value("CLSID\\{" + std::string(one.class_id) + "}"), "none");
    EXPECT_EQ(Value("Interface\\{" + std::string(one.interface_id) + "}"), "none");
  }
  EXPECT_EQ(Value("TypeLib\\{" + std::string(com::kLibraryId) + "}\\1.0"), "none");
  EXPECT_EQ(UnregisterServer(), S_OK);
}

/// Runs work in an apartment of its own while this one answers calls.
template <class Work>
void InAnotherApartment(Work work) {
  HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::thread other([&] {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    work();
    CoUninitialize();
    SetEvent(done);
  });
  for (;;) {
    const DWORD woken = MsgWaitForMultipleObjects(1, &done, FALSE, 20000, QS_ALLINPUT);
    if (woken != WAIT_OBJECT_0 + 1) {
      EXPECT_EQ(woken, WAIT_OBJECT_0);
      break;
    }
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  }
  other.join();
  CloseHandle(done);
}

TEST_F(Registered, AnObjectIsUsedFromASecondApartment) {
  {
    ReadyFacade ready;
    IStream* parcel = nullptr;
    ASSERT_EQ(CoMarshalInterThreadInterfaceInStream(IID_IDispatch, ready.web.get(), &parcel), S_OK);
    const DWORD home = GetCurrentThreadId();
    DWORD ran_in = 0;
    ready.database.at = [&](const std::string&) { ran_in = GetCurrentThreadId(); };
    InAnotherApartment([&] {
      {
        Reference<IDispatch> web;
        ASSERT_EQ(CoGetInterfaceAndReleaseStream(parcel, IID_IDispatch, web.OutVoid()), S_OK);
        EXPECT_NE(web.get(), ready.web.get()) << "a stand-in";
        EXPECT_EQ(Call(web.get(), "Version").Text(), "Database");
        EXPECT_EQ(Put(web.get(), "Username", Text("città €")).status, S_OK);
        EXPECT_EQ(Call(web.get(), "UserId").Number(), 7);
        // An object that is handed out there, and a result by reference.
        const auto message = Call(web.get(), "NewMessage").Object();
        ASSERT_TRUE(message);
        EXPECT_EQ(Put(message.get(), "NM_MessageBody", Text("testo")).status, S_OK);
        Variant body = Variant::Text("");
        EXPECT_TRUE(
            Call(message.get(), "MessageBody", {ByReference(body), Int(1), Int(0)}).Truth());
        EXPECT_EQ(com::TextOf(body.bstrVal), "testo");
        // An exception.
        const Outcome raised = Call(Create("BasicInterface").get(), "GetMessage", {Int(1)});
        EXPECT_EQ(raised.source, "BasicInterface");
        Call(web.get(), "VerifyAccount", {Int(3)});
      }
    });
    EXPECT_EQ(ran_in, home) << "the object runs where it lives";
    EXPECT_EQ(Call(ready.web.get(), "Username").Text(), "città €");
  }
  EXPECT_EQ(CanUnloadNow(), S_OK);
  EXPECT_EQ(FakesAlive(), 0);
}

TEST_F(Registered, EachApartmentHasObjectsOfItsOwn) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([i] {
      CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
      for (int round = 0; round < 200; ++round) {
        Reference<IDispatch> web;
        ASSERT_EQ(CreateByName(L"Korvane_beta1.WebInterface", web), S_OK);
        ASSERT_EQ(Put(web.get(), "UserId", Int(i * 1000 + round)).status, S_OK);
        ASSERT_EQ(Call(web.get(), "UserId").Number(), i * 1000 + round);
        ASSERT_EQ(Call(web.get(), "NewMessage").status, DISP_E_EXCEPTION);
      }
      CoUninitialize();
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(CanUnloadNow(), S_OK);
}

}  // namespace
}  // namespace korvane::test
