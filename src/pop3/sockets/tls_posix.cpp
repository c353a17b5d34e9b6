#include "pop3/sockets/tls.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>

namespace korvane::sockets {

namespace {

// OpenSSL's own socket BIO writes in a way that raises SIGPIPE on a dead connection, so the bytes
// pass through this one.
const TcpSocket& SocketOf(BIO* bio) { return *static_cast<const TcpSocket*>(BIO_get_data(bio)); }

int ReadBio(BIO* bio, char* buffer, int capacity) {
  BIO_clear_retry_flags(bio);
  if (capacity < 1) return 0;
  const Moved moved = SocketOf(bio).Read(buffer, static_cast<size_t>(capacity));
  if (moved.result == Moved::Result::kDone) return static_cast<int>(moved.count);
  if (moved.result == Moved::Result::kWantsRead) BIO_set_retry_read(bio);
  return moved.result == Moved::Result::kClosed ? 0 : -1;
}

int WriteBio(BIO* bio, const char* bytes, int count) {
  BIO_clear_retry_flags(bio);
  if (count < 1) return 0;
  const Moved moved = SocketOf(bio).Write(bytes, static_cast<size_t>(count));
  if (moved.result == Moved::Result::kDone) return static_cast<int>(moved.count);
  if (moved.result == Moved::Result::kWantsWrite) BIO_set_retry_write(bio);
  return -1;
}

// Nothing is buffered here, so a flush has nothing to do and succeeds; no other request is known.
long ControlBio(BIO*, int command, long, void*) { return command == BIO_CTRL_FLUSH ? 1 : 0; }

const BIO_METHOD* SocketMethod() {
  static const BIO_METHOD* const method = [] {
    BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket");
    if (made != nullptr) {
      BIO_meth_set_read(made, ReadBio);
      BIO_meth_set_write(made, WriteBio);
      BIO_meth_set_ctrl(made, ControlBio);
    }
    return made;
  }();
  return method;
}

struct Free {
  void operator()(SSL* ssl) const { SSL_free(ssl); }
};

std::shared_ptr<SSL_CTX> NewContext(bool verify) {
  std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
  if (!context) return nullptr;
  SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
  SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_RELEASE_BUFFERS);
  if (verify && SSL_CTX_set_default_verify_paths(context.get()) != 1) return nullptr;
  return context;
}

std::string NameFrom(const char* variable, const char* otherwise) {
  const char* value = secure_getenv(variable);
  return value != nullptr ? value : otherwise;
}

// Where the trusted certificates come from, and which version of the file that is: one that was
// replaced while this process runs is read again.
struct TrustStore {
  std::string file;
  std::string directory;
  ino_t inode = 0;
  off_t size = -1;
  time_t changed = 0;
  long changed_nanoseconds = 0;

  static TrustStore Now() {
    TrustStore store;
    store.file = NameFrom(X509_get_default_cert_file_env(), X509_get_default_cert_file());
    store.directory = NameFrom(X509_get_default_cert_dir_env(), X509_get_default_cert_dir());
    struct stat status {};
    if (::stat(store.file.c_str(), &status) == 0) {
      store.inode = status.st_ino;
      store.size = status.st_size;
      store.changed = status.st_mtim.tv_sec;
      store.changed_nanoseconds = status.st_mtim.tv_nsec;
    }
    return store;
  }
  bool operator==(const TrustStore&) const = default;
};

// The context that all connections of this process share: reading some hundred certificates takes
// many times as long as a handshake. A session holds on to its context.
std::shared_ptr<SSL_CTX> ContextFor(bool verify) {
  if (!verify) {
    static const std::shared_ptr<SSL_CTX> unverified = NewContext(false);
    return unverified;
  }
  static std::mutex mutex;
  static TrustStore known;
  static std::shared_ptr<SSL_CTX> context;
  const std::lock_guard lock(mutex);
  TrustStore now = TrustStore::Now();
  if (!context || !(now == known)) {
    context = NewContext(true);
    known = std::move(now);
  }
  return context;
}

bool IsAddress(const std::string& name) {
  unsigned char bytes[sizeof(in6_addr)];
  return inet_pton(AF_INET, name.c_str(), bytes) == 1 ||
         inet_pton(AF_INET6, name.c_str(), bytes) == 1;
}

// Says whom the certificate must name, and to whom the connection is addressed.
bool SetPeer(SSL* ssl, std::string name) {
  name = name.substr(0, name.find('%'));  // an address' zone is this machine's own affair
  if (name.ends_with('.')) name.pop_back();
  if (IsAddress(name)) {
    return X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), name.c_str()) == 1;
  }
  SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return SSL_set1_host(ssl, name.c_str()) == 1 && SSL_set_tlsext_host_name(ssl, name.c_str()) == 1;
}

// One session. The lock lets one thread read while another writes; it is not held while waiting.
class OpenSslTls : public Tls {
 public:
  explicit OpenSslTls(SSL* ssl) : ssl_(ssl) {}

  Moved Connect() {
    return Attempt([&](size_t*) { return SSL_connect(ssl_.get()); });
  }

  Moved Read(char* buffer, size_t capacity) override {
    return Attempt([&](size_t* count) { return SSL_read_ex(ssl_.get(), buffer, capacity, count); });
  }

  Moved Write(const char* bytes, size_t size) override {
    return Attempt([&](size_t* count) { return SSL_write_ex(ssl_.get(), bytes, size, count); });
  }

  void End() override {
    const std::lock_guard lock(mutex_);
    ERR_clear_error();
    if (!broken_) SSL_shutdown(ssl_.get());
    ERR_clear_error();
  }

 private:
  template <typename Call>
  Moved Attempt(Call call) {
    const std::lock_guard lock(mutex_);
    if (broken_) return {Moved::Result::kFailed};
    ERR_clear_error();
    size_t count = 0;
    const int result = call(&count);
    if (result > 0) return {Moved::Result::kDone, count};
    switch (SSL_get_error(ssl_.get(), result)) {
      case SSL_ERROR_WANT_READ:
        return {Moved::Result::kWantsRead};
      case SSL_ERROR_WANT_WRITE:
        return {Moved::Result::kWantsWrite};
      case SSL_ERROR_ZERO_RETURN:
        return {Moved::Result::kClosed};
      default:
        // After such an error the session must not be touched again.
        broken_ = true;
        ERR_clear_error();
        return {Moved::Result::kFailed};
    }
  }

  std::mutex mutex_;
  std::unique_ptr<SSL, Free> ssl_;
  bool broken_ = false;
};

}  // namespace

std::unique_ptr<Tls> Tls::Handshake(const TcpSocket& socket, const std::string& name, bool verify,
                                    const Deadline& deadline) {
  const std::shared_ptr<SSL_CTX> context = ContextFor(verify);
  if (!context || SocketMethod() == nullptr) return nullptr;

  SSL* ssl = SSL_new(context.get());
  if (ssl == nullptr) return nullptr;
  auto session = std::make_unique<OpenSslTls>(ssl);
  if (!SetPeer(ssl, name)) return nullptr;
  SSL_set_verify(ssl, verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
  BIO* bio = BIO_new(SocketMethod());
  if (bio == nullptr) return nullptr;
  BIO_set_data(bio, const_cast<TcpSocket*>(&socket));
  BIO_set_init(bio, 1);
  SSL_set_bio(ssl, bio, bio);

  for (;;) {
    const Moved moved = session->Connect();
    if (moved.result == Moved::Result::kDone) return session;
    if (moved.result != Moved::Result::kWantsRead && moved.result != Moved::Result::kWantsWrite) {
      return nullptr;
    }
    if (!socket.Wait(moved.result, deadline)) return nullptr;
  }
}

}  // namespace korvane::sockets
