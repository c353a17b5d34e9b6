#include "frame/database_url.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "frame/odbc_string.h"

namespace korvane {

namespace {

constexpr int32_t kDefaultBusyTimeout = 10'000;

[[noreturn]] void Refuse(const std::string& what) {
  throw DatabaseError(DatabaseError::Kind::kOther, "connection string: " + what);
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && HexDigit(text[i + 1]) >= 0 &&
        HexDigit(text[i + 2]) >= 0) {
      decoded += static_cast<char>(HexDigit(text[i + 1]) * 16 + HexDigit(text[i + 2]));
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  // The client libraries take C strings: a NUL would quietly end a name or a password early.
  if (decoded.find('\0') != std::string::npos) Refuse("a NUL in it");
  return decoded;
}

std::optional<int32_t> Number(std::string_view text, int32_t most) {
  int32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0 || number > most) {
    return std::nullopt;
  }
  return number;
}

void ParseOptions(std::string_view text, DatabaseUrl& url) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('&'), text.size());
    const std::string_view option = text.substr(0, end);
    const size_t equals = std::min(option.find('='), option.size());
    const size_t value = std::min(equals + 1, option.size());
    if (!option.empty()) {
      url.options[PercentDecoded(option.substr(0, equals))] = PercentDecoded(option.substr(value));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (url.options.contains("dates") && !url.MonthFirst() && url.Option("dates") != "day-first") {
    Refuse("the option dates is day-first or month-first");
  }
  if (url.options.contains("timeout") && !Number(url.Option("timeout"), INT32_MAX)) {
    Refuse("the option timeout is a number of milliseconds");
  }
}

DatabaseUrl::Server ParseHost(std::string_view text) {
  DatabaseUrl::Server server;
  std::string_view port;
  if (text.starts_with('[')) {  // an IPv6 address
    const size_t end = text.find(']');
    if (end == std::string_view::npos) Refuse("] expected behind the address");
    server.host = text.substr(1, end - 1);
    port = text.substr(end + 1);
  } else {
    const size_t colon = std::min(text.find(':'), text.size());
    server.host = PercentDecoded(text.substr(0, colon));
    port = text.substr(colon);
  }
  if (!port.empty()) {
    const auto number = port.starts_with(':') ? Number(port.substr(1), 65535) : std::nullopt;
    if (!number) Refuse("the port is no number");
    server.port = *number;
  }
  return server;
}

void ParseServer(std::string_view rest, DatabaseUrl& url) {
  if (!rest.starts_with("//")) Refuse("// expected behind the engine's name");
  rest.remove_prefix(2);
  const size_t slash = std::min(rest.find('/'), rest.size());
  std::string_view authority = rest.substr(0, slash);
  url.name = PercentDecoded(rest.substr(std::min(slash + 1, rest.size())));
  if (url.name.empty()) Refuse("the name of the database is missing");
  if (const size_t at = authority.rfind('@'); at != std::string_view::npos) {
    const std::string_view credentials = authority.substr(0, at);
    const size_t colon = std::min(credentials.find(':'), credentials.size());
    url.user = PercentDecoded(credentials.substr(0, colon));
    url.password = PercentDecoded(credentials.substr(std::min(colon + 1, credentials.size())));
    authority.remove_prefix(at + 1);
  }
  while (true) {
    const size_t comma = std::min(authority.find(','), authority.size());
    url.servers.push_back(ParseHost(authority.substr(0, comma)));
    if (comma == authority.size()) break;
    authority.remove_prefix(comma + 1);
  }
  url.among_several = url.servers.size() > 1;
  if (url.among_several && std::ranges::any_of(url.servers, [](const DatabaseUrl::Server& server) {
        return server.host.empty();
      })) {
    Refuse("a host is missing in the list");
  }
  url.host = url.servers.front().host;
  url.port = url.servers.front().port;
}

void ParseFile(std::string_view rest, DatabaseUrl& url) {
  if (rest.starts_with("//")) rest.remove_prefix(2);
#ifdef _WIN32
  // "sqlite:///C:/mail.db": the drive follows the third slash.
  if (rest.size() > 2 && rest[0] == '/' && rest[2] == ':') rest.remove_prefix(1);
#endif
  url.name = PercentDecoded(rest);
  if (url.name.empty()) Refuse("the path of the database file is missing");
}

}  // namespace

DatabaseUrl DatabaseUrl::Parse(const std::string& text) {
  DatabaseUrl url;
  const std::string_view whole = text;
  const size_t colon = whole.find(':');
  if (colon == std::string_view::npos) Refuse("no engine in front of a colon");
  const std::string_view engine = whole.substr(0, colon);
  std::string_view rest = whole.substr(colon + 1);
  const size_t question =
      engine == "odbc" ? OdbcString::End(rest) : std::min(rest.find('?'), rest.size());
  ParseOptions(rest.substr(std::min(question + 1, rest.size())), url);
  rest = rest.substr(0, question);
  if (engine == "sqlite") {
    url.dialect = Dialect::kSqlite;
    ParseFile(rest, url);
  } else if (engine == "postgresql" || engine == "postgres") {
    url.dialect = Dialect::kPostgresql;
    ParseServer(rest, url);
  } else if (engine == "mysql" || engine == "mariadb") {
    url.dialect = Dialect::kMariadb;
    ParseServer(rest, url);
  } else if (engine == "odbc") {
    const OdbcString parts(rest);
    url.odbc = rest;
    url.password = parts.Value("PWD");
    if (url.password.empty()) url.password = parts.Value("Password");
  } else {
    Refuse("the engine is not one of sqlite, postgresql, mysql and odbc");
  }
  return url;
}

DatabaseUrl DatabaseUrl::AtServer(size_t index) const {
  DatabaseUrl one = *this;
  one.servers = {servers.at(index)};
  one.host = one.servers.front().host;
  one.port = one.servers.front().port;
  return one;
}

int32_t DatabaseUrl::BusyTimeout() const {
  return Number(Option("timeout"), INT32_MAX).value_or(kDefaultBusyTimeout);
}

int32_t DatabaseUrl::AnswerSeconds() const {
  constexpr int32_t kAmongSeveral = 30;
  const auto milliseconds = Number(Option("answer"), INT32_MAX);
  if (milliseconds) return *milliseconds / 1000 + (*milliseconds % 1000 != 0);
  return among_several ? kAmongSeveral : 0;
}

std::string DatabaseUrl::Option(const std::string& option) const {
  const auto found = options.find(option);
  return found == options.end() ? std::string() : found->second;
}

std::string DatabaseUrl::WithoutPassword(std::string text) const {
  // Blotting out every "e" would show a password of one letter rather than hide it.
  if (password.size() < 4) return text;
  for (size_t at = 0; (at = text.find(password, at)) != std::string::npos; at += 3) {
    text.replace(at, password.size(), "***");
  }
  return text;
}

}  // namespace korvane
