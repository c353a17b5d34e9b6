#include "pop3/sockets/host_form.h"

#include <algorithm>
#include <charconv>

namespace korvane::sockets {

namespace {

constexpr int32_t kTlsPort = 995;

struct Prefix {
  std::string_view text;
  Security security;
};

constexpr Prefix kPrefixes[] = {{"pop3://", Security::kPlain},
                                {"pop3s://", Security::kVerified},
                                {"pop3s-insecure://", Security::kUnverified},
                                {"pop3+ahead://", Security::kPlain},
                                {"pop3s+ahead://", Security::kVerified},
                                {"pop3s-insecure+ahead://", Security::kUnverified}};

char Lower(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                              : character;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), text.begin(),
                                                    [](char a, char b) { return a == Lower(b); });
}

// A name goes to the resolver and into a line on standard error, so it holds nothing that could
// pass there for something else.
bool IsName(std::string_view name) {
  return !name.empty() && name.find('/') == name.npos &&
         std::none_of(name.begin(), name.end(), [](char c) {
           return static_cast<unsigned char>(c) <= ' ' || c == 0x7F || c == '[' || c == ']';
         });
}

bool ParsePort(std::string_view text, int32_t& port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc() && end == text.data() + text.size();
}

// Takes the port off a prefixed host; false where what stands for it is no number.
bool SplitPort(std::string_view& host, int32_t& port) {
  if (host.starts_with('[')) {
    const size_t close = host.find(']');
    if (close == host.npos) return false;
    const std::string_view behind = host.substr(close + 1);
    host = host.substr(1, close - 1);
    // Brackets are for addresses, which a name behind them would not be.
    if (host.find(':') == host.npos) return false;
    return behind.empty() || (behind.starts_with(':') && ParsePort(behind.substr(1), port));
  }
  const size_t colon = host.find(':');
  // Two colons without brackets are an IPv6 address, of which no part can be told to be a port.
  if (colon == host.npos || host.find(':', colon + 1) != host.npos) return true;
  const std::string_view digits = host.substr(colon + 1);
  host = host.substr(0, colon);
  return ParsePort(digits, port);
}

}  // namespace

std::optional<HostForm> ParseHostForm(std::string_view host, int32_t port) {
  Security security = port == kTlsPort ? Security::kVerified : Security::kPlain;
  for (const Prefix& prefix : kPrefixes) {
    if (!StartsWith(host, prefix.text)) continue;
    security = prefix.security;
    host.remove_prefix(prefix.text.size());
    if (!SplitPort(host, port)) return std::nullopt;
    break;
  }
  if (!IsName(host) || port < 1 || port > 65535) return std::nullopt;
  return HostForm{std::string(host), static_cast<uint16_t>(port), security};
}

}  // namespace korvane::sockets
