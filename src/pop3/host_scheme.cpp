#include "pop3/host_scheme.h"

#include <algorithm>

namespace korvane {
namespace {

constexpr int32_t kTlsPort = 995;

struct Scheme {
  std::string_view text;
  bool encrypted;
  bool verified;
  bool reads_ahead;
};

constexpr Scheme kSchemes[] = {
    {"pop3://", false, false, false},          {"pop3+ahead://", false, false, true},
    {"pop3s://", true, true, false},           {"pop3s+ahead://", true, true, true},
    {"pop3s-insecure://", true, false, false}, {"pop3s-insecure+ahead://", true, false, true},
};

bool StartsWith(std::string_view text, std::string_view scheme) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return text.size() >= scheme.size() && std::equal(scheme.begin(), scheme.end(), text.begin(),
                                                    [&](char a, char b) { return a == lower(b); });
}

}  // namespace

HostScheme ReadHostScheme(std::string_view host, int32_t port) {
  for (const Scheme& scheme : kSchemes) {
    if (!StartsWith(host, scheme.text)) continue;
    return {scheme.encrypted, scheme.verified, scheme.reads_ahead, host.substr(scheme.text.size())};
  }
  return {port == kTlsPort, port == kTlsPort, false, host};
}

std::string HostScheme::WithReadAhead(bool on) const {
  for (const Scheme& scheme : kSchemes) {
    if (scheme.encrypted == encrypted && scheme.verified == verified && scheme.reads_ahead == on) {
      return std::string(scheme.text).append(host);
    }
  }
  return std::string(host);
}

}  // namespace korvane
