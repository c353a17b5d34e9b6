#include "random_text.h"

#include <sodium.h>

#include <array>

namespace korvane::site {

namespace {

std::string Hex(const unsigned char* bytes, size_t count) {
  std::string text(count * 2 + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), bytes, count);
  text.pop_back();
  return text;
}

}  // namespace

std::string RandomToken(size_t bytes) {
  std::string random(bytes, '\0');
  randombytes_buf(random.data(), random.size());
  return Hex(reinterpret_cast<const unsigned char*>(random.data()), random.size());
}

std::string Signature(std::string_view message) {
  static const auto key = [] {
    std::array<unsigned char, crypto_auth_KEYBYTES> made;
    crypto_auth_keygen(made.data());
    return made;
  }();
  std::array<unsigned char, crypto_auth_BYTES> code;
  crypto_auth(code.data(), reinterpret_cast<const unsigned char*>(message.data()), message.size(),
              key.data());
  return Hex(code.data(), 20);
}

bool SameSecret(std::string_view a, std::string_view b) {
  return a.size() == b.size() && sodium_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace korvane::site
