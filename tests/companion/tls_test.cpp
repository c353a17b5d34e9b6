// TLS connections against real TLS servers on this machine, with certificates made here.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <signal.h>
#include <sys/socket.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Tarsel_MailConversions.h"
#include "companion/local_server.h"

namespace {

using namespace companion_test;
using namespace std::chrono_literals;

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* ssl) const { SSL_free(ssl); }
};
using Key = std::unique_ptr<EVP_PKEY, Free>;
using Certificate = std::unique_ptr<X509, Free>;

Key MakeKey() { return Key(EVP_EC_gen("P-256")); }

void AddExtension(X509* certificate, int kind, const std::string& value) {
  X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  ASSERT_NE(extension, nullptr);
  X509_add_ext(certificate, extension, -1);
  X509_EXTENSION_free(extension);
}

// A certificate for `key`, signed by the issuer, or by itself where there is none.
Certificate MakeCertificate(const char* name, const std::string& alternative_names, EVP_PKEY* key,
                            X509* issuer, EVP_PKEY* issuer_key, long ends_in = 3600) {
  static long serial = 1;
  Certificate certificate(X509_new());
  X509_set_version(certificate.get(), 2);
  ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), serial++);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -7200);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), ends_in);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME* subject = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
  X509_set_issuer_name(certificate.get(),
                       issuer == nullptr ? subject : X509_get_subject_name(issuer));
  if (alternative_names.empty()) {
    AddExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
  } else {
    AddExtension(certificate.get(), NID_subject_alt_name, alternative_names);
  }
  EXPECT_GT(X509_sign(certificate.get(), issuer_key, EVP_sha256()), 0);
  return certificate;
}

// A certification authority that this process trusts while the object lives.
class TrustedAuthority {
 public:
  TrustedAuthority()
      : file_(std::filesystem::temp_directory_path() /
              ("korvane_tls_" + std::to_string(getpid()) + ".pem")),
        key_(MakeKey()),
        certificate_(MakeCertificate("Test authority", "", key_.get(), nullptr, key_.get())) {
    FILE* file = std::fopen(file_.c_str(), "w");
    EXPECT_NE(file, nullptr);
    PEM_write_X509(file, certificate_.get());
    std::fclose(file);
    setenv("SSL_CERT_FILE", file_.c_str(), 1);
  }
  ~TrustedAuthority() {
    unsetenv("SSL_CERT_FILE");
    std::filesystem::remove(file_);
  }
  Certificate Sign(const std::string& names, EVP_PKEY* key, long ends_in = 3600) const {
    return MakeCertificate("server", names, key, certificate_.get(), key_.get(), ends_in);
  }

 private:
  std::filesystem::path file_;
  Key key_;
  Certificate certificate_;
};

// What a TLS server does with a session whose handshake succeeded.
using Talk = std::function<void(SSL*)>;

void Write(SSL* ssl, std::string_view bytes) {
  SSL_write(ssl, bytes.data(), static_cast<int>(bytes.size()));
}

std::string Read(SSL* ssl) {
  char buffer[1000];
  const int count = SSL_read(ssl, buffer, sizeof buffer);
  return count > 0 ? std::string(buffer, static_cast<size_t>(count)) : std::string();
}

// Greets, answers one line, says farewell.
void Greet(SSL* ssl) {
  Write(ssl, "+OK ready\r\n");
  const std::string line = Read(ssl);
  if (!line.empty()) Write(ssl, "+" + line);
  SSL_shutdown(ssl);
}

class TlsServer {
 public:
  TlsServer(const Key& key, const Certificate& certificate, const Talk& talk = Greet,
            int newest = 0)
      : context_(MakeContext(key.get(), certificate.get(), newest)),
        server_([this, talk](int connection) {
          const std::unique_ptr<SSL, Free> ssl(SSL_new(context_.get()));
          SSL_set_fd(ssl.get(), connection);
          if (SSL_accept(ssl.get()) == 1) {
            if (const char* name = SSL_get_servername(ssl.get(), TLSEXT_NAMETYPE_host_name)) {
              asked_for_ = name;
            }
            talk(ssl.get());
          }
          ERR_clear_error();
        }) {}
  int32_t port() const { return server_.port(); }
  // To be read after the exchange: the server sets it in the handshake.
  std::string asked_for() const { return asked_for_; }

 private:
  using Context = std::unique_ptr<SSL_CTX, Free>;

  static Context MakeContext(EVP_PKEY* key, X509* certificate, int newest) {
    Context context(SSL_CTX_new(TLS_server_method()));
    EXPECT_EQ(SSL_CTX_use_certificate(context.get(), certificate), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey(context.get(), key), 1);
    if (newest != 0) {
      SSL_CTX_set_security_level(context.get(), 0);
      SSL_CTX_set_max_proto_version(context.get(), newest);
    }
    return context;
  }

  Context context_;
  std::string asked_for_;
  LocalServer server_;
};

constexpr int32_t kUnused = -77;

// Connects as `host` says, and if that works exchanges a line; what came back.
std::string Exchange(const std::string& host, int32_t port, int32_t timeout = 5000) {
  int32_t handle = kUnused;
  if (MPconnect(&handle, port, host.c_str(), timeout) != 0) {
    EXPECT_EQ(handle, kUnused);
    return "not connected";
  }
  char buffer[1000];
  std::string received;
  int32_t count = MPrecv(handle, buffer, sizeof buffer);
  if (count > 0) received.append(buffer, static_cast<size_t>(count));
  if (MPsend(handle, "NOOP\r\n", 6) == 6) {
    while ((count = MPrecv(handle, buffer, sizeof buffer)) > 0) {
      received.append(buffer, static_cast<size_t>(count));
    }
  }
  MPclose(handle);
  return received;
}

constexpr char kExchanged[] = "+OK ready\r\n+NOOP\r\n";
constexpr char kNotConnected[] = "not connected";

TEST(Tls, ACertificateOfATrustedAuthorityForThisNameConnects) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  std::string asked_for;
  {
    TlsServer server(key, certificate);
    EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kExchanged);
    asked_for = server.asked_for();
  }
  EXPECT_EQ(asked_for, "localhost") << "the name is part of the greeting";
}

TEST(Tls, ACertificateForTheAddressConnects) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("IP:127.0.0.1", key.get());
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://127.0.0.1:" + std::to_string(server.port()), 1), kExchanged);
}

TEST(Tls, ACertificateForAnotherNameIsAFailedConnection) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:mail.example.com", key.get());
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kNotConnected);
}

TEST(Tls, ACertificateForAnotherAddressIsAFailedConnection) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("IP:127.0.0.2,DNS:127.0.0.1", key.get());
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://127.0.0.1", server.port()), kNotConnected);
}

TEST(Tls, ASelfSignedCertificateIsAFailedConnection) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate =
      MakeCertificate("localhost", "DNS:localhost", key.get(), nullptr, key.get());
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kNotConnected);
}

TEST(Tls, AnExpiredCertificateIsAFailedConnection) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get(), -3600);
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kNotConnected);
}

TEST(Tls, TheAuthorityOfAnotherInstallationIsNotTrusted) {
  const Key key = MakeKey();
  Certificate certificate;
  {
    const TrustedAuthority authority;
    certificate = authority.Sign("DNS:localhost", key.get());
  }
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kNotConnected);
}

TEST(Tls, TheInsecureFormAcceptsAnyCertificateAndSaysSoInOneLine) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate =
      MakeCertificate("elsewhere", "DNS:elsewhere", key.get(), nullptr, key.get());
  TlsServer server(key, certificate);
  testing::internal::CaptureStderr();
  EXPECT_EQ(Exchange("pop3s-insecure://localhost", server.port()), kExchanged);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("localhost"), said.npos);
  EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
}

TEST(Tls, ATrustStoreThatIsReplacedWhileTheProcessRunsIsReadAgain) {
  const Key key = MakeKey();
  for (int i = 0; i < 2; ++i) {
    // The second authority has the place and the name of the first one.
    const TrustedAuthority authority;
    const Certificate certificate = authority.Sign("DNS:localhost", key.get());
    TlsServer server(key, certificate);
    EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kExchanged);
  }
}

TEST(Tls, ATrustStoreThatCannotBeReadIsNotKeptForTheNextConnection) {
  const Key key = MakeKey();
  const Certificate stranger =
      MakeCertificate("localhost", "DNS:localhost", key.get(), nullptr, key.get());
  setenv("SSL_CERT_FILE", "/nowhere/at/all.pem", 1);
  {
    TlsServer server(key, stranger);
    EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kNotConnected);
  }
  const TrustedAuthority authority;
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  TlsServer server(key, certificate);
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kExchanged);
}

TEST(Tls, ConnectionsOfManyThreadsAtOnceAreVerifiedEachByItself) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate right = authority.Sign("DNS:localhost", key.get());
  const Certificate wrong = authority.Sign("DNS:mail.example.com", key.get());
  std::vector<std::thread> threads;
  std::vector<std::string> answers(8);
  for (size_t i = 0; i < answers.size(); ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 3; ++round) {
        TlsServer server(key, i % 2 == 0 ? right : wrong);
        answers[i] += Exchange("pop3s://localhost", server.port()) + "|";
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (size_t i = 0; i < answers.size(); ++i) {
    const std::string once = std::string(i % 2 == 0 ? kExchanged : kNotConnected) + "|";
    EXPECT_EQ(answers[i], once + once + once);
  }
}

TEST(Tls, TheVerifiedFormSaysNothing) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  TlsServer server(key, certificate);
  testing::internal::CaptureStderr();
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kExchanged);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Tls, Version12IsSpoken) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  TlsServer server(key, certificate, Greet, TLS1_2_VERSION);
  EXPECT_EQ(Exchange("pop3s://localhost", server.port()), kExchanged);
}

TEST(Tls, NothingOlderThan12IsSpoken) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  TlsServer server(key, certificate, Greet, TLS1_1_VERSION);
  EXPECT_EQ(Exchange("pop3s-insecure://localhost", server.port()), kNotConnected);
}

TEST(Tls, APlainServerIsAFailedConnection) {
  LocalServer server([](int connection) {
    SendAll(connection, "+OK ready\r\n");
    AwaitEnd(connection);
  });
  EXPECT_EQ(Exchange("pop3s-insecure://127.0.0.1", server.port()), kNotConnected);
}

TEST(Tls, AServerThatNeverAnswersTheHandshakeEndsWithTheTimeOut) {
  LocalServer server(AwaitEnd);
  const Stopwatch stopwatch;
  EXPECT_EQ(Exchange("pop3s://127.0.0.1", server.port(), 300), kNotConnected);
  EXPECT_GE(stopwatch.Elapsed(), 290ms);
  EXPECT_LT(stopwatch.Elapsed(), 3s);
}

TEST(Tls, ThePlainFormSpeaksPlainText) {
  std::string first;
  LocalServer server([&](int connection) {
    SendAll(connection, "+OK ready\r\n");
    first = ReceiveSome(connection);
    SendAll(connection, "+" + first);
  });
  EXPECT_EQ(Exchange("pop3://127.0.0.1:" + std::to_string(server.port()), 995), kExchanged);
  EXPECT_EQ(first, "NOOP\r\n");
}

TEST(Tls, ALongReplyComesWholeAndASilentServerTimesOut) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  const std::string sent(200'000, 'x');
  TlsServer server(key, certificate, [&](SSL* ssl) {
    Write(ssl, sent);
    Read(ssl);
  });
  int32_t handle = 0;
  ASSERT_EQ(MPconnect(&handle, server.port(), "pop3s://localhost", 700), 0);
  std::string received;
  std::string buffer(16384, '\0');
  while (received.size() < sent.size()) {
    const int32_t count = MPrecv(handle, buffer.data(), 16384);
    ASSERT_GT(count, 0);
    received.append(buffer, 0, static_cast<size_t>(count));
  }
  EXPECT_EQ(received, sent);
  const Stopwatch stopwatch;
  EXPECT_LT(MPrecv(handle, buffer.data(), 16384), 0);
  EXPECT_GE(stopwatch.Elapsed(), 690ms);
  MPclose(handle);
}

TEST(Tls, SendingOnADeadConnectionFailsAndRaisesNoSignal) {
  ASSERT_NE(signal(SIGPIPE, SIG_DFL), SIG_ERR);
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  // An orderly end of the connection: the first line sent after it is answered by a reset, and what
  // is written after that is what raises the signal.
  TlsServer server(key, certificate, [](SSL* ssl) { SSL_shutdown(ssl); });
  int32_t handle = 0;
  ASSERT_EQ(MPconnect(&handle, server.port(), "pop3s://localhost", 2000), 0);
  char byte;
  EXPECT_EQ(MPrecv(handle, &byte, 1), 0);
  std::this_thread::sleep_for(50ms);
  int32_t result = 1;
  for (int i = 0; i < 200 && result > 0; ++i) {
    result = MPsend(handle, "NOOP\r\n", 6);
    std::this_thread::sleep_for(2ms);
  }
  EXPECT_LT(result, 1);
  EXPECT_LE(MPrecv(handle, &byte, 1), 0);
  MPclose(handle);
}

TEST(Tls, APeerThatClosesWithoutAFarewellIsAFailure) {
  const TrustedAuthority authority;
  const Key key = MakeKey();
  const Certificate certificate = authority.Sign("DNS:localhost", key.get());
  TlsServer server(key, certificate, [](SSL*) {});
  int32_t handle = 0;
  ASSERT_EQ(MPconnect(&handle, server.port(), "pop3s://localhost", 2000), 0);
  char byte;
  EXPECT_LE(MPrecv(handle, &byte, 1), 0);
  MPclose(handle);
}

}  // namespace
