// One connection through the companion library, for a test that has the server:
//
//     tls_client HOST PORT TIMEOUT
//     tls_client trust FILE    makes the authority of this certificate (DER) one of the user's
//     tls_client distrust FILE
//
// Commands come on standard input, one a line: "send TEXT" sends the text and a line end, "receive"
// receives once, "all" receives until there is no more, and tells how much came and its check sum.
// Every result is one line on standard output.
#include <windows.h>
// Behind the one that it needs.
#include <wincrypt.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "Tarsel_MailConversions.h"

namespace {

constexpr int32_t kCapacity = 16'384;

void ReceiveAll(int32_t socket) {
  std::string buffer(kCapacity, '\0');
  unsigned long long count = 0;
  unsigned long sum = 0;
  int32_t part = 0;
  while ((part = MPrecv(socket, buffer.data(), kCapacity)) > 0) {
    for (int32_t i = 0; i < part; ++i) {
      sum = (sum * 31 + static_cast<unsigned char>(buffer[static_cast<size_t>(i)])) & 0xFFFFFF;
    }
    count += static_cast<unsigned long long>(part);
  }
  std::printf("%llu %lu %s\n", count, sum, part == 0 ? "closed" : "failed");
}

bool Trust(const char* path, bool trusted) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  const HCERTSTORE store =
      CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"Root");
  const CERT_CONTEXT* certificate = nullptr;
  bool done = CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING,
                                               reinterpret_cast<const BYTE*>(bytes.data()),
                                               static_cast<DWORD>(bytes.size()),
                                               CERT_STORE_ADD_REPLACE_EXISTING, &certificate) != 0;
  if (done && !trusted) {
    done = CertDeleteCertificateFromStore(certificate) != 0;
  } else if (certificate) {
    CertFreeCertificateContext(certificate);
  }
  CertCloseStore(store, 0);
  return done;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3) return Trust(argv[2], std::string(argv[1]) == "trust") ? 0 : 1;
  if (argc != 4) return 2;
  int32_t socket = 0;
  const int32_t result = MPconnect(&socket, std::atoi(argv[2]), argv[1], std::atoi(argv[3]));
  std::printf("%s\n", result == 0 ? "connected" : "refused");
  std::fflush(stdout);
  if (result != 0) return 0;
  std::string line;
  while (std::getline(std::cin, line)) {
    if (line.ends_with('\r')) line.pop_back();
    if (line.starts_with("send ")) {
      const std::string bytes = line.substr(5) + "\r\n";
      std::printf("%d\n", MPsend(socket, bytes.data(), static_cast<int32_t>(bytes.size())));
    } else if (line == "receive") {
      std::string buffer(kCapacity, '\0');
      const int32_t count = MPrecv(socket, buffer.data(), kCapacity);
      std::printf("%d %s\n",
                  count > 0   ? count
                  : count < 0 ? -1
                              : 0,
                  count > 0 ? buffer.substr(0, buffer.find('\r')).c_str() : "");
    } else if (line == "all") {
      ReceiveAll(socket);
    }
    std::fflush(stdout);
  }
  MPclose(socket);
}
