#include "facade/web_interface.h"

#include "engine/mail_engine.h"
#include "facade/mail_user.h"
#include "frame/error_numbers.h"
#include "maintenance/cleaner.h"
#include "message/mail_message.h"
#include "pop3/mail_server.h"

namespace korvane {
namespace {

constexpr int32_t kNoUser = -100;

}  // namespace

WebInterface::WebInterface()
    : account_(std::make_shared<MailUser>()),
      server_(std::make_shared<korvane::MailServer>()),
      engine_(std::make_shared<MailEngine>()) {}

WebInterface::~WebInterface() {
  connection_.reset();
  engine_.reset();
  server_.reset();
  account_.reset();
}

void WebInterface::Username(const std::string& value) { account_->Username(value); }
std::string WebInterface::Username() const { return account_->Username(); }
void WebInterface::Password(const std::string& value) { account_->Password(value); }
std::string WebInterface::Password() const { return account_->Password(); }
void WebInterface::MailServer(const std::string& value) { account_->MailServer(value); }
std::string WebInterface::MailServer() const { return account_->MailServer(); }
void WebInterface::ServerPort(int32_t value) { account_->ServerPort(value); }
int32_t WebInterface::ServerPort() const { return account_->ServerPort(); }
void WebInterface::ServerTimeout(int32_t value) { account_->ServerTimeout(value); }
int32_t WebInterface::ServerTimeout() const { return account_->ServerTimeout(); }
void WebInterface::MailListPageSize(int32_t value) { account_->MailListPageSize(value); }
int32_t WebInterface::MailListPageSize() const { return account_->MailListPageSize(); }

void WebInterface::UserId(int32_t value) {
  user_id_ = value;
  if (initialised_) account_->UserId(value);
}

bool WebInterface::Init(const std::shared_ptr<BossObject>& oBoss, int32_t lAccountId) {
  ClearError();
  initialised_ = false;
  if (user_id_ == kNoUser) {
    SetError(error::NoUser);
  } else if (!connection_) {
    SetError(error::NoConnection);
  } else if (!oBoss || !oBoss->IsInitialised()) {
    SetError(error::BossNotInitialised);
  } else if (!account_->InitFromConfig(*oBoss, connection_, user_id_, lAccountId)) {
    CopyError(*account_);
  } else if (!server_->SetUser(account_)) {
    CopyError(*server_);
  } else if (!engine_->Init(account_, server_, connection_)) {
    CopyError(*engine_);
  } else {
    initialised_ = true;
  }
  return initialised_;
}

bool WebInterface::Finish() {
  ClearError();
  return true;
}

void WebInterface::Guard() {
  ClearError();
  if (!initialised_) throw AutomationException(1500, "WebInterface", "Oggetto non inizializzato");
}

bool WebInterface::VerifyAccount(int32_t lAccountId) {
  Guard();
  const bool other = lAccountId != MailUser::kNoAccount;
  const int32_t remembered = account_->AccountId();
  MailUser::AccountState state = account_->SaveAccount();
  if (other && !account_->LoadAccount(lAccountId)) {
    CopyError(*account_);
    account_->RestoreAccount(std::move(state));
    return false;
  }
  bool verified = false;
  if (server_->Connect()) {
    server_->Disconnect();
    verified = true;
  } else {
    CopyError(*server_);
  }
  if (!other) return verified;
  // What the page set itself is in no row.
  if (remembered == MailUser::kNoAccount) {
    account_->RestoreAccount(std::move(state));
  } else if (!account_->LoadAccount(remembered)) {
    if (NoError()) CopyError(*account_);
    account_->RestoreAccount(std::move(state));
  }
  return verified;
}

std::shared_ptr<MailMessages> WebInterface::GetListMessagesInBox(
    int32_t lBoxId, int32_t lServerId, bool bDownloadHeaderOnly, bool bDeleteMessageOnMailServer,
    const std::string& sMsgSeparator, bool bFirstDownload, EMailOrder moMailOrder,
    EMailOrderDirection modMailOrderDirection, int32_t lPageNum, Any* lTotPages, Any* lTotMails,
    EMailOrderDirection modOrderDataDirection) {
  Guard();
  account_->BoxId(lBoxId);
  MailEngine::SyncRequest sync;
  sync.server_id = lServerId;
  sync.header_only = bDownloadHeaderOnly;
  sync.delete_on_server = bDeleteMessageOnMailServer;
  sync.separator = sMsgSeparator;
  sync.first_download = bFirstDownload;
  MailMessages::ListRequest list;
  list.order = moMailOrder;
  list.direction = modMailOrderDirection;
  list.date_direction = modOrderDataDirection;
  list.page = lPageNum;
  auto page = engine_->GetListMessagesInBox(sync, list, lTotPages, lTotMails);
  CopyError(*engine_);
  return page;
}

std::shared_ptr<MailMessage> WebInterface::GetMessage(int32_t lMessageId,
                                                      bool bDeleteMessageOnMailServer,
                                                      const std::string& sMessageSeparator) {
  Guard();
  auto message = engine_->GetMessage(lMessageId, sMessageSeparator, bDeleteMessageOnMailServer);
  CopyError(*engine_);
  return message;
}

bool WebInterface::DeleteMessage(const Any& vMessagesId, EDelType ldtDeleteType) {
  Guard();
  const bool deleted = engine_->DeleteMessage(vMessagesId, ldtDeleteType);
  CopyError(*engine_);
  return deleted;
}

std::shared_ptr<MailMessage> WebInterface::NewMessage(const std::string& sMsgSeparator) {
  Guard();
  auto message = std::make_shared<MailMessage>();
  message->PrepareNew(account_, sMsgSeparator);
  return message;
}

bool WebInterface::BackgroundClean() {
  Guard();
  if (!connection_) {
    // The page took it away since Init.
    throw DatabaseError(DatabaseError::Kind::kOther, "there is no connection");
  }
  // The text is set on success too: callers test the number.
  SetError(CompactMessageFile(*connection_, account_->PathMessages(), account_->UserId()));
  return NoError();
}

}  // namespace korvane
