// Runs a script as a page would run, and shows what became of its claims.
//
//     script_host FILE.vbs|FILE.js [ARGUMENT...]
//     script_host --stay      does nothing for a quarter of an hour: while a program runs, the next
//                             one need not start the services of the system first
//
// The file is UTF-8. Its object "Test" takes the claims: Check(condition, claim), Equal(actual,
// expected, claim), Fail(claim), Log(text), Print(text); and gives Argument(number). Each claim is
// a line that begins with "ok" or "FAIL". A line "'#include NAME" ("//#include NAME" in JScript) at
// the very beginning takes in another file of the same folder. The status is 0 when there was a
// claim and none failed, and no error was left uncaught.
#include <fcntl.h>
#include <io.h>

#include "script_site.h"

namespace korvane::test {

namespace {

std::wstring Folder(const std::wstring& path) {
  const size_t end = path.find_last_of(L"\\/");
  return end == std::wstring::npos ? L"" : path.substr(0, end + 1);
}

std::wstring ReadScript(const std::wstring& path) {
  FILE* file = _wfopen(path.c_str(), L"rb");
  if (!file) throw Fault{HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"There is no " + path};
  std::string bytes;
  char block[4096];
  for (size_t got = fread(block, 1, sizeof block, file); got > 0;
       got = fread(block, 1, sizeof block, file)) {
    bytes.append(block, got);
  }
  fclose(file);
  return ToWide(bytes);
}

/// The name behind the mark of the first line; empty without one.
std::wstring Included(const std::wstring& text) {
  for (const std::wstring mark : {L"'#include ", L"//#include "}) {
    if (!text.starts_with(mark)) continue;
    std::wstring name = text.substr(mark.size(), text.find(L'\n') - mark.size());
    while (name.ends_with(L'\r') || name.ends_with(L' ')) name.pop_back();
    return name;
  }
  return L"";
}

void Need(HRESULT status, const wchar_t* what) {
  if (FAILED(status)) throw Fault{status, what};
}

void Run(const std::wstring& path, TestObject& test) {
  const bool javascript = path.ends_with(L".js");
  CLSID engine_class;
  Need(CLSIDFromProgID(javascript ? L"JScript" : L"VBScript", &engine_class), L"no engine");
  IActiveScript* engine = nullptr;
  Need(CoCreateInstance(engine_class, nullptr, CLSCTX_INPROC_SERVER, IID_IActiveScript,
                        reinterpret_cast<void**>(&engine)),
       L"the engine cannot be made");
  IActiveScriptParse* parser = nullptr;
  Need(engine->QueryInterface(__uuidof(IActiveScriptParse), reinterpret_cast<void**>(&parser)),
       L"the engine reads no text");
  ScriptSite site(test);
  Need(engine->SetScriptSite(&site), L"the engine refuses its site");
  Need(parser->InitNew(), L"the engine cannot begin");
  Need(engine->AddNamedItem(L"Test", SCRIPTITEM_ISVISIBLE), L"the engine refuses the object Test");
  const auto parse = [&](const std::wstring& text, DWORD cookie) {
    EXCEPINFO exception = {};
    return parser->ParseScriptText(text.c_str(), nullptr, nullptr, nullptr, cookie, 0,
                                   SCRIPTTEXT_ISVISIBLE, nullptr, &exception);
  };
  const std::wstring text = ReadScript(path);
  const std::wstring included = Included(text);
  HRESULT status = included.empty() ? S_OK : parse(ReadScript(Folder(path) + included), 1);
  if (SUCCEEDED(status)) status = parse(text, 0);
  if (SUCCEEDED(status)) status = engine->SetScriptState(SCRIPTSTATE_CONNECTED);
  parser->Release();
  engine->Close();
  engine->Release();
  // The site was told of an error of the script.
  if (FAILED(status) && test.failed() == 0) throw Fault{status, L"the script cannot be run"};
}

}  // namespace

}  // namespace korvane::test

int wmain(int count, wchar_t** values) {
  using namespace korvane::test;
  if (count < 2) {
    PrintLine(L"script_host FILE.vbs|FILE.js [ARGUMENT...]");
    return 2;
  }
  if (std::wstring_view(values[1]) == L"--stay") {
    Sleep(15 * 60 * 1000);
    return 0;
  }
  _setmode(_fileno(stdout), _O_BINARY);
  CoInitialize(nullptr);
  auto* test = new TestObject(std::vector<std::wstring>(values + 2, values + count));
  try {
    Run(values[1], *test);
  } catch (const Fault& fault) {
    test->Fail(fault.description + L" (" + std::to_wstring(fault.number) + L")");
  }
  PrintLine(std::to_wstring(test->passed()) + L" claims hold, " + std::to_wstring(test->failed()) +
            L" do not");
  const bool good = test->failed() == 0 && test->passed() > 0;
  test->Release();
  CoFreeUnusedLibrariesEx(0, 0);
  CoUninitialize();
  return good ? 0 : 1;
}
