#include "odbc_session.h"

#include <windows.h>

#include <sql.h>
#include <sqlext.h>

#include "ado_errors.h"
#include "support/variant.h"

namespace korvane::test {

namespace {

struct Diagnosis {
  std::wstring state;
  long native = 0;
  std::wstring text;
};

Diagnosis Diagnose(SQLSMALLINT kind, SQLHANDLE handle) {
  SQLWCHAR state[6] = {};
  SQLWCHAR text[1024] = {};
  SQLINTEGER native = 0;
  SQLSMALLINT length = 0;
  if (!SQL_SUCCEEDED(SQLGetDiagRecW(kind, handle, 1, state, &native, text, 1024, &length))) {
    return {L"HY000", 0, L"The driver gives no reason."};
  }
  return {state, native, text};
}

/// SQLite's driver gives its own result codes behind "HY000", PostgreSQL's gives the state.
HRESULT NumberOf(const Diagnosis& fault) {
  enum : long { kSqliteError = 1, kSqliteBusy = 5, kSqliteLocked = 6, kSqliteConstraint = 19 };
  if (fault.state.starts_with(L"23")) return kIntegrityViolation;
  if (fault.state == L"42P01" || fault.state == L"42S02") return kNoSuchTable;
  if (fault.state.starts_with(L"42")) return kErrorInCommand;
  if (fault.state == L"55P03" || fault.state == L"HYT00") return kTimeOut;
  if (fault.state != L"HY000") return E_FAIL;
  if (fault.native == kSqliteConstraint) return kIntegrityViolation;
  if (fault.native == kSqliteBusy || fault.native == kSqliteLocked) return kTimeOut;
  if (fault.native != kSqliteError) return E_FAIL;
  return fault.text.find(L"no such table") == std::wstring::npos ? kErrorInCommand : kNoSuchTable;
}

void Check(SQLRETURN status, SQLSMALLINT kind, SQLHANDLE handle) {
  if (SQL_SUCCEEDED(status) || status == SQL_NO_DATA) return;
  const Diagnosis fault = Diagnose(kind, handle);
  throw Fault{NumberOf(fault), fault.text};
}

class Statement {
 public:
  explicit Statement(SQLHDBC connection) {
    test::Check(SQLAllocHandle(SQL_HANDLE_STMT, connection, &handle_), SQL_HANDLE_DBC, connection);
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { SQLFreeHandle(SQL_HANDLE_STMT, handle_); }
  SQLHSTMT get() const { return handle_; }
  void Check(SQLRETURN status) const { test::Check(status, SQL_HANDLE_STMT, handle_); }

  WideCell Cell(SQLUSMALLINT column) const {
    std::wstring text;
    while (true) {
      wchar_t piece[2048];
      SQLLEN left = 0;
      const SQLRETURN status = SQLGetData(handle_, column, SQL_C_WCHAR, piece, sizeof piece, &left);
      if (status == SQL_NO_DATA) return text;
      Check(status);
      if (left == SQL_NULL_DATA) return std::nullopt;
      text += piece;
      if (status == SQL_SUCCESS) return text;
    }
  }

 private:
  SQLHSTMT handle_ = nullptr;
};

}  // namespace

OdbcSession::OdbcSession(const std::wstring& connection_string) {
  SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment_);
  SQLSetEnvAttr(environment_, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  SQLAllocHandle(SQL_HANDLE_DBC, environment_, &connection_);
  std::wstring asked = connection_string;
  const SQLRETURN status = SQLDriverConnectW(connection_, nullptr, asked.data(), SQL_NTS, nullptr,
                                             0, nullptr, SQL_DRIVER_NOPROMPT);
  if (!SQL_SUCCEEDED(status)) {
    const Diagnosis fault = Diagnose(SQL_HANDLE_DBC, connection_);
    SQLFreeHandle(SQL_HANDLE_DBC, connection_);
    SQLFreeHandle(SQL_HANDLE_ENV, environment_);
    throw Fault{E_FAIL, fault.text};
  }
  wchar_t product[64] = {};
  SQLGetInfoW(connection_, SQL_DBMS_NAME, product, sizeof product, nullptr);
  if (std::wstring_view(product).starts_with(L"Postgre")) dialect_ = Dialect::kPostgresql;
}

OdbcSession::~OdbcSession() {
  SQLDisconnect(connection_);
  SQLFreeHandle(SQL_HANDLE_DBC, connection_);
  SQLFreeHandle(SQL_HANDLE_ENV, environment_);
}

OdbcRows OdbcSession::Run(const std::wstring& text,
                          std::span<const OdbcParameter> parameters) const {
  const Statement statement(connection_);
  std::wstring writable = text;
  statement.Check(SQLPrepareW(statement.get(), writable.data(), SQL_NTS));
  std::vector<std::wstring> values(parameters.size());
  std::vector<SQLLEN> lengths(parameters.size());
  for (size_t i = 0; i < parameters.size(); ++i) {
    values[i] = parameters[i].value.value_or(L"");
    const auto bytes = static_cast<SQLLEN>(values[i].size() * sizeof(wchar_t));
    lengths[i] = parameters[i].value ? bytes : SQLLEN{SQL_NULL_DATA};
    const SQLULEN size = values[i].empty() ? 1 : values[i].size();
    const SQLSMALLINT type = parameters[i].type ? parameters[i].type
                             : size > 4000      ? SQLSMALLINT{SQL_WLONGVARCHAR}
                                                : SQLSMALLINT{SQL_WVARCHAR};
    statement.Check(SQLBindParameter(statement.get(), static_cast<SQLUSMALLINT>(i + 1),
                                     SQL_PARAM_INPUT, SQL_C_WCHAR, type, size, 0, values[i].data(),
                                     bytes, &lengths[i]));
  }
  statement.Check(SQLExecute(statement.get()));

  OdbcRows rows;
  SQLSMALLINT columns = 0;
  statement.Check(SQLNumResultCols(statement.get(), &columns));
  for (SQLSMALLINT i = 1; i <= columns; ++i) {
    wchar_t name[256] = {};
    OdbcColumn column;
    SQLSMALLINT length = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = 0;
    SQLULEN size = 0;
    statement.Check(SQLDescribeColW(statement.get(), static_cast<SQLUSMALLINT>(i), name, 256,
                                    &length, &column.type, &size, &digits, &nullable));
    column.name = name;
    rows.columns.push_back(column);
  }
  SQLLEN affected = 0;
  if (columns == 0) {
    statement.Check(SQLRowCount(statement.get(), &affected));
    rows.affected = affected;
    return rows;
  }
  while (true) {
    const SQLRETURN status = SQLFetch(statement.get());
    if (status == SQL_NO_DATA) return rows;
    statement.Check(status);
    for (SQLSMALLINT i = 1; i <= columns; ++i) {
      rows.cells.push_back(statement.Cell(static_cast<SQLUSMALLINT>(i)));
    }
  }
}

std::wstring OdbcSession::KeyOf(const std::wstring& table) const {
  const Statement statement(connection_);
  std::wstring name = table;
  if (dialect_ == Dialect::kPostgresql)
    CharLowerBuffW(name.data(), static_cast<DWORD>(name.size()));
  statement.Check(SQLPrimaryKeysW(statement.get(), nullptr, 0, nullptr, 0, name.data(), SQL_NTS));
  std::wstring key;
  for (int found = 0; SQL_SUCCEEDED(SQLFetch(statement.get())); ++found) {
    if (found == 1) return L"";
    key = statement.Cell(4).value_or(L"");
  }
  return key;
}

}  // namespace korvane::test
