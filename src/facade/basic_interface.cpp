#include "facade/basic_interface.h"

#include "facade/mail_user.h"
#include "frame/boss_object.h"
#include "frame/error_numbers.h"
#include "pop3/mail_server.h"

namespace korvane {

BasicInterface::BasicInterface()
    : account_(std::make_shared<MailUser>()), server_(std::make_shared<korvane::MailServer>()) {}

BasicInterface::~BasicInterface() {
  if (connected_) server_->Disconnect();
  initialised_ = false;
  server_.reset();
  account_.reset();
}

void BasicInterface::Username(const std::string& value) { account_->Username(value); }
std::string BasicInterface::Username() const { return account_->Username(); }
void BasicInterface::Password(const std::string& value) { account_->Password(value); }
std::string BasicInterface::Password() const { return account_->Password(); }
void BasicInterface::MailServer(const std::string& value) { account_->MailServer(value); }
std::string BasicInterface::MailServer() const { return account_->MailServer(); }
void BasicInterface::ServerPort(int32_t value) { account_->ServerPort(value); }
int32_t BasicInterface::ServerPort() const { return account_->ServerPort(); }
void BasicInterface::ServerTimeout(int32_t value) { account_->ServerTimeout(value); }
int32_t BasicInterface::ServerTimeout() const { return account_->ServerTimeout(); }
void BasicInterface::UserId(int32_t value) { account_->UserId(value); }
int32_t BasicInterface::UserId() const { return account_->UserId(); }
void BasicInterface::MailListPageSize(int32_t value) { account_->MailListPageSize(value); }
int32_t BasicInterface::MailListPageSize() const { return account_->MailListPageSize(); }

bool BasicInterface::Init(bool bOpenConnection) {
  ClearError();
  // Message numbers belong to a session: a new one begins with the old one ended.
  if (connected_) server_->Disconnect();
  connected_ = false;
  initialised_ = false;
  BossObject boss;
  boss.InitDefaults(1);
  if (!account_->InitFromConfig(boss, nullptr, account_->UserId(), MailUser::kNoAccount)) {
    CopyError(*account_);
    return false;
  }
  if (!server_->SetUser(account_) || (bOpenConnection && !server_->Connect())) {
    CopyError(*server_);
    return false;
  }
  connected_ = bOpenConnection;
  initialised_ = true;
  return true;
}

bool BasicInterface::Finish() {
  ClearError();
  if (!initialised_ || !connected_) return true;
  const bool ended = server_->Disconnect();
  if (!ended) TakeError(false);
  return ended;
}

void BasicInterface::Guard() {
  ClearError();
  if (!initialised_) throw AutomationException(1499, "BasicInterface", "Oggetto non inizializzato");
}

/// The client's error after an operation that failed. The client has no number for a session that
/// is not there, nor for a message whose unique id is another one.
void BasicInterface::TakeError(bool by_unique_id) {
  CopyError(*server_);
  if (!NoError()) return;
  SetError(by_unique_id && server_->IsIdle() ? error::FindNotFound : error::ReceiveFailed);
}

std::shared_ptr<MailMessages> BasicInterface::GetListMessagesInBox(int32_t lBoxId, int32_t lPageNum,
                                                                   Any* lTotPages, Any* lTotMails) {
  Guard();
  account_->BoxId(lBoxId);
  auto page = server_->GetHeadersPage(lPageNum, lTotPages, lTotMails);
  CopyError(*server_);
  if (!page) TakeError(false);
  return page;
}

std::shared_ptr<MailMessage> BasicInterface::GetMessage(int32_t lMessageId,
                                                        const std::string& sMessageSeparator) {
  Guard();
  auto message = server_->GetFullMessage(lMessageId, sMessageSeparator);
  CopyError(*server_);
  if (!message) TakeError(false);
  return message;
}

std::shared_ptr<MailMessage> BasicInterface::GetMessageUIDL(int32_t lMessageId,
                                                            const std::string& sUIDL_mail,
                                                            const std::string& sMessageSeparator) {
  Guard();
  auto message = server_->GetFullMessageByUIDL(lMessageId, sUIDL_mail, sMessageSeparator);
  if (!message) TakeError(true);
  return message;
}

bool BasicInterface::DeleteMessage(int32_t lMessageId) {
  Guard();
  const bool deleted = server_->DeleteServerMessage(lMessageId);
  if (!deleted) TakeError(false);
  return deleted;
}

bool BasicInterface::DeleteMessageUIDL(int32_t lMessageId, const std::string& sUIDL_mail) {
  Guard();
  const bool deleted = server_->DeleteServerMessageByUIDL(lMessageId, sUIDL_mail);
  if (!deleted) TakeError(true);
  return deleted;
}

}  // namespace korvane
