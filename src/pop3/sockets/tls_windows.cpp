// TLS by the system's own provider, Schannel, in version 1.2. The peer's certificate is looked at
// here, before anything is sent to it: its chain against the system's store, its name against the
// host's.
#define SECURITY_WIN32
#include <winsock2.h>
// Behind the one that it needs.
#include <windows.h>
// Behind the one that they need.
#include <schannel.h>
#include <security.h>
#include <wincrypt.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <span>
#include <vector>

#include "pop3/sockets/tls.h"
#include "pop3/sockets/winsock.h"

namespace korvane::sockets {

namespace {

// SECURITY_FLAG_IGNORE_CERT_CN_INVALID of another library's header.
constexpr DWORD kNameNotLookedAt = 0x1000;
constexpr char kAlertRecord = 21;
constexpr size_t kPiece = 16'384;
// More than any handshake or record takes; a peer that sends on and on is refused.
constexpr size_t kMostUnread = 1 << 20;

constexpr ULONG kWanted = ISC_REQ_SEQUENCE_DETECT | ISC_REQ_REPLAY_DETECT |
                          ISC_REQ_CONFIDENTIALITY | ISC_REQ_EXTENDED_ERROR |
                          ISC_REQ_ALLOCATE_MEMORY | ISC_REQ_STREAM | ISC_REQ_MANUAL_CRED_VALIDATION;

struct FreeIt {
  void operator()(void* memory) const { FreeContextBuffer(memory); }
  void operator()(const CERT_CONTEXT* certificate) const {
    CertFreeCertificateContext(certificate);
  }
  void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};

class Credentials {
 public:
  Credentials() {
    SCHANNEL_CRED wanted{};
    wanted.dwVersion = SCHANNEL_CRED_VERSION;
    wanted.grbitEnabledProtocols = SP_PROT_TLS1_2_CLIENT;
    wanted.dwFlags =
        SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS | SCH_USE_STRONG_CRYPTO;
    std::wstring provider = UNISP_NAME_W;
    good_ = AcquireCredentialsHandleW(nullptr, provider.data(), SECPKG_CRED_OUTBOUND, nullptr,
                                      &wanted, nullptr, nullptr, &handle_, nullptr) == SEC_E_OK;
  }
  Credentials(const Credentials&) = delete;
  ~Credentials() {
    if (good_) FreeCredentialsHandle(&handle_);
  }
  bool good() const { return good_; }
  CredHandle* handle() { return &handle_; }

 private:
  CredHandle handle_{};
  bool good_ = false;
};

// An address in the bytes that a certificate holds; empty where the name is none.
std::vector<unsigned char> AddressBytes(const std::string& name) {
  std::vector<unsigned char> bytes(sizeof(in6_addr));
  if (inet_pton(AF_INET6, name.c_str(), bytes.data()) == 1) return bytes;
  bytes.resize(sizeof(in_addr));
  if (inet_pton(AF_INET, name.c_str(), bytes.data()) == 1) return bytes;
  return {};
}

bool NamesAddress(const CERT_CONTEXT& certificate, std::span<const unsigned char> address) {
  const CERT_EXTENSION* extension =
      CertFindExtension(szOID_SUBJECT_ALT_NAME2, certificate.pCertInfo->cExtension,
                        certificate.pCertInfo->rgExtension);
  if (extension == nullptr) return false;
  DWORD size = 0;
  const auto decode = [&](void* to) {
    return CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, extension->Value.pbData,
                               extension->Value.cbData, 0, nullptr, to, &size) != 0;
  };
  if (!decode(nullptr)) return false;
  std::vector<std::max_align_t> memory(size / sizeof(std::max_align_t) + 1);
  if (!decode(memory.data())) return false;
  const auto* names = reinterpret_cast<const CERT_ALT_NAME_INFO*>(memory.data());
  return std::any_of(names->rgAltEntry, names->rgAltEntry + names->cAltEntry,
                     [&](const CERT_ALT_NAME_ENTRY& entry) {
                       return entry.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS &&
                              std::ranges::equal(
                                  std::span(entry.IPAddress.pbData, entry.IPAddress.cbData),
                                  address);
                     });
}

// The chain up to an authority that the system trusts, for a server of this name.
bool IsTrusted(const CERT_CONTEXT& certificate, const std::string& name, const Deadline& deadline) {
  std::string usage = szOID_PKIX_KP_SERVER_AUTH;
  char* usages[] = {usage.data()};
  CERT_CHAIN_PARA wanted{};
  wanted.cbSize = sizeof wanted;
  wanted.RequestedUsage.dwType = USAGE_MATCH_TYPE_OR;
  wanted.RequestedUsage.Usage.cUsageIdentifier = 1;
  wanted.RequestedUsage.Usage.rgpszUsageIdentifier = usages;
#ifdef CERT_CHAIN_PARA_HAS_EXTRA_FIELDS
  // What the system fetches to complete a chain must not outlast the time-out.
  wanted.dwUrlRetrievalTimeout =
      static_cast<DWORD>(std::max<long long>(1, deadline.Left().count()));
#else
  (void)deadline;
#endif
  const CERT_CHAIN_CONTEXT* found = nullptr;
  if (!CertGetCertificateChain(nullptr, &certificate, nullptr, certificate.hCertStore, &wanted, 0,
                               nullptr, &found)) {
    return false;
  }
  const std::unique_ptr<const CERT_CHAIN_CONTEXT, FreeIt> chain(found);

  // The policy below passes over some faults, an issuer that is missing for one.
  if (chain->TrustStatus.dwErrorStatus != CERT_TRUST_NO_ERROR) return false;

  const std::vector<unsigned char> address = AddressBytes(name);
  if (!address.empty() && !NamesAddress(certificate, address)) return false;
  std::wstring server = Utf16(name);
  HTTPSPolicyCallbackData https{};
  https.cbStruct = sizeof https;
  https.dwAuthType = AUTHTYPE_SERVER;
  // That the certificate names an address was just seen.
  if (!address.empty()) https.fdwChecks = kNameNotLookedAt;
  https.pwszServerName = server.data();
  CERT_CHAIN_POLICY_PARA policy{};
  policy.cbSize = sizeof policy;
  policy.pvExtraPolicyPara = &https;
  CERT_CHAIN_POLICY_STATUS status{};
  status.cbSize = sizeof status;
  return CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, chain.get(), &policy, &status) !=
             0 &&
         status.dwError == 0;
}

// One session. The lock lets one thread read while another writes; it is not held while waiting.
class SchannelTls : public Tls {
 public:
  SchannelTls(const TcpSocket& socket, std::string name)
      : socket_(socket), name_(std::move(name)), target_(Utf16(name_)) {}
  ~SchannelTls() override {
    if (has_context_) DeleteSecurityContext(&context_);
  }

  bool Shake(bool verify, const Deadline& deadline) {
    if (!credentials_.good() || !Negotiate(deadline)) return false;
    SecPkgContext_ConnectionInfo info{};
    if (QueryContextAttributesW(&context_, SECPKG_ATTR_CONNECTION_INFO, &info) != SEC_E_OK ||
        (info.dwProtocol & SP_PROT_TLS1_2_CLIENT) == 0 ||
        QueryContextAttributesW(&context_, SECPKG_ATTR_STREAM_SIZES, &sizes_) != SEC_E_OK) {
      return false;
    }
    if (!verify) return true;
    const CERT_CONTEXT* peer = nullptr;
    if (QueryContextAttributesW(&context_, SECPKG_ATTR_REMOTE_CERT_CONTEXT, &peer) != SEC_E_OK) {
      return false;
    }
    const std::unique_ptr<const CERT_CONTEXT, FreeIt> owner(peer);
    return peer != nullptr && IsTrusted(*peer, name_, deadline);
  }

  Moved Read(char* buffer, size_t capacity) override {
    const std::lock_guard lock(mutex_);
    for (;;) {
      if (!plain_.empty()) {
        const size_t count = std::min(capacity, plain_.size());
        std::copy_n(plain_.data(), count, buffer);
        plain_.erase(0, count);
        return {Moved::Result::kDone, count};
      }
      if (ended_) return {Moved::Result::kClosed};
      if (broken_) return {Moved::Result::kFailed};
      if (Decrypt()) continue;
      if (ended_ || broken_) continue;
      const Moved moved = Fetch();
      if (moved.result == Moved::Result::kWantsRead) return moved;
      // An end without a farewell may be somebody else's cut.
      if (moved.result != Moved::Result::kDone) broken_ = true;
    }
  }

  Moved Write(const char* bytes, size_t size) override {
    const std::lock_guard lock(mutex_);
    if (broken_ || ended_) return {Moved::Result::kFailed};
    if (sealed_.empty()) {
      const size_t count = std::min<size_t>(size, sizes_.cbMaximumMessage);
      if (!Encrypt(bytes, count)) {
        broken_ = true;
        return {Moved::Result::kFailed};
      }
      sealed_of_ = count;
    }
    // A record that was begun is finished, with the same bytes as before.
    const Moved moved = SendSealed();
    if (moved.result == Moved::Result::kWantsWrite) return moved;
    if (moved.result != Moved::Result::kDone || sealed_of_ > size) {
      broken_ = true;
      return {Moved::Result::kFailed};
    }
    return {Moved::Result::kDone, sealed_of_};
  }

  void End() override {
    const std::lock_guard lock(mutex_);
    if (broken_ || !sealed_.empty()) return;
    DWORD shutdown = SCHANNEL_SHUTDOWN;
    SecBuffer control{sizeof shutdown, SECBUFFER_TOKEN, &shutdown};
    SecBufferDesc controls{SECBUFFER_VERSION, 1, &control};
    if (ApplyControlToken(&context_, &controls) != SEC_E_OK) return;
    std::string farewell;
    Step(nullptr, farewell);
    if (!farewell.empty()) socket_.Write(farewell.data(), farewell.size());
  }

 private:
  // One call of the provider: its token is appended to `out`.
  SECURITY_STATUS Step(SecBufferDesc* input, std::string& out) {
    SecBuffer token{0, SECBUFFER_TOKEN, nullptr};
    SecBufferDesc output{SECBUFFER_VERSION, 1, &token};
    ULONG flags = 0;
    const SECURITY_STATUS status = InitializeSecurityContextW(
        credentials_.handle(), has_context_ ? &context_ : nullptr, target_.data(), kWanted, 0, 0,
        input, 0, &context_, &output, &flags, nullptr);
    const std::unique_ptr<void, FreeIt> owner(token.pvBuffer);
    if (!has_context_ && (status == SEC_I_CONTINUE_NEEDED || status == SEC_E_OK)) {
      has_context_ = true;
    }
    if (token.pvBuffer != nullptr) out.append(static_cast<char*>(token.pvBuffer), token.cbBuffer);
    return status;
  }

  bool Negotiate(const Deadline& deadline) {
    std::string out;
    if (Step(nullptr, out) != SEC_I_CONTINUE_NEEDED || !SendAll(out, deadline)) return false;
    for (bool fetch = true;;) {
      if (fetch && !FetchUntil(deadline)) return false;
      std::array<SecBuffer, 2> given = {
          SecBuffer{static_cast<ULONG>(unread_.size()), SECBUFFER_TOKEN, unread_.data()},
          SecBuffer{0, SECBUFFER_EMPTY, nullptr}};
      SecBufferDesc input{SECBUFFER_VERSION, given.size(), given.data()};
      out.clear();
      const SECURITY_STATUS status = Step(&input, out);
      if (status == SEC_E_INCOMPLETE_MESSAGE) {
        fetch = true;
        continue;
      }
      if (!out.empty() && !SendAll(out, deadline)) return false;
      KeepExtra(given);
      if (status == SEC_E_OK) return true;
      // A certificate of our own, for which a server may ask, is not given.
      if (status != SEC_I_CONTINUE_NEEDED && status != SEC_I_INCOMPLETE_CREDENTIALS) return false;
      fetch = unread_.empty();
    }
  }

  // What the provider has not looked at lies at the end of what it was given.
  void KeepExtra(std::span<const SecBuffer> buffers) {
    size_t extra = 0;
    for (const SecBuffer& buffer : buffers) {
      if (buffer.BufferType == SECBUFFER_EXTRA) extra = buffer.cbBuffer;
    }
    unread_.erase(0, unread_.size() - std::min(extra, unread_.size()));
  }

  // True when a record was opened, which may hold nothing.
  bool Decrypt() {
    if (unread_.empty()) return false;
    const bool is_alert = unread_.front() == kAlertRecord;
    std::array<SecBuffer, 4> buffers{};
    buffers[0] = {static_cast<ULONG>(unread_.size()), SECBUFFER_DATA, unread_.data()};
    for (size_t i = 1; i < buffers.size(); ++i) buffers[i] = {0, SECBUFFER_EMPTY, nullptr};
    SecBufferDesc message{SECBUFFER_VERSION, buffers.size(), buffers.data()};
    const SECURITY_STATUS status = DecryptMessage(&context_, &message, 0, nullptr);
    if (status == SEC_E_INCOMPLETE_MESSAGE) return false;
    if (status == SEC_I_CONTEXT_EXPIRED) {
      ended_ = true;
    } else if (status != SEC_E_OK) {
      broken_ = true;  // a new handshake in the middle of a session too
    }
    if (status != SEC_E_OK) return false;
    for (const SecBuffer& buffer : buffers) {
      if (buffer.BufferType == SECBUFFER_DATA) {
        plain_.append(static_cast<const char*>(buffer.pvBuffer), buffer.cbBuffer);
      }
    }
    KeepExtra(buffers);
    // Not every provider says more of a farewell than that it opened; other alerts are faults.
    if (is_alert) ended_ = true;
    return true;
  }

  bool Encrypt(const char* bytes, size_t count) {
    sealed_.assign(sizes_.cbHeader + count + sizes_.cbTrailer, '\0');
    std::copy_n(bytes, count, sealed_.data() + sizes_.cbHeader);
    std::array<SecBuffer, 4> buffers = {
        SecBuffer{sizes_.cbHeader, SECBUFFER_STREAM_HEADER, sealed_.data()},
        SecBuffer{static_cast<ULONG>(count), SECBUFFER_DATA, sealed_.data() + sizes_.cbHeader},
        SecBuffer{sizes_.cbTrailer, SECBUFFER_STREAM_TRAILER,
                  sealed_.data() + sizes_.cbHeader + count},
        SecBuffer{0, SECBUFFER_EMPTY, nullptr}};
    SecBufferDesc message{SECBUFFER_VERSION, buffers.size(), buffers.data()};
    if (EncryptMessage(&context_, 0, &message, 0) != SEC_E_OK) return false;
    sealed_.resize(buffers[0].cbBuffer + buffers[1].cbBuffer + buffers[2].cbBuffer);
    return true;
  }

  Moved SendSealed() {
    while (!sealed_.empty()) {
      const Moved moved = socket_.Write(sealed_.data(), sealed_.size());
      if (moved.result != Moved::Result::kDone) return moved;
      sealed_.erase(0, moved.count);
    }
    return {Moved::Result::kDone};
  }

  Moved Fetch() {
    if (unread_.size() > kMostUnread) return {Moved::Result::kFailed};
    const size_t before = unread_.size();
    unread_.resize(before + kPiece);
    const Moved moved = socket_.Read(unread_.data() + before, kPiece);
    unread_.resize(before + moved.count);
    return moved;
  }

  bool FetchUntil(const Deadline& deadline) {
    for (;;) {
      const Moved moved = Fetch();
      if (moved.result == Moved::Result::kDone) return true;
      if (moved.result != Moved::Result::kWantsRead || !socket_.Wait(moved.result, deadline)) {
        return false;
      }
    }
  }

  bool SendAll(std::string_view bytes, const Deadline& deadline) {
    while (!bytes.empty()) {
      const Moved moved = socket_.Write(bytes.data(), bytes.size());
      if (moved.result == Moved::Result::kDone) {
        bytes.remove_prefix(moved.count);
      } else if (moved.result != Moved::Result::kWantsWrite ||
                 !socket_.Wait(moved.result, deadline)) {
        return false;
      }
    }
    return true;
  }

  std::mutex mutex_;
  const TcpSocket& socket_;
  std::string name_;
  std::wstring target_;  ///< the name as the provider takes it, and tells it to the server
  Credentials credentials_;
  CtxtHandle context_{};
  bool has_context_ = false;
  SecPkgContext_StreamSizes sizes_{};
  std::string unread_;  ///< came, and is not opened yet
  std::string plain_;   ///< opened, and not handed on yet
  std::string sealed_;  ///< a record that is not wholly sent yet
  size_t sealed_of_ = 0;
  bool ended_ = false;  ///< the peer has said farewell
  bool broken_ = false;
};

}  // namespace

std::unique_ptr<Tls> Tls::Handshake(const TcpSocket& socket, const std::string& name, bool verify,
                                    const Deadline& deadline) {
  std::string peer =
      name.substr(0, name.find('%'));  // an address' zone is this machine's own affair
  if (peer.ends_with('.')) peer.pop_back();
  auto session = std::make_unique<SchannelTls>(socket, std::move(peer));
  if (!session->Shake(verify, deadline)) return nullptr;
  return session;
}

}  // namespace korvane::sockets
