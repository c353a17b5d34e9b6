// WebInterface: the per-user object through which a site's pages use the mail service.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "../frame/any.h"
#include "../frame/boss_object.h"
#include "../frame/database.h"
#include "../frame/enumerations.h"
#include "../frame/error_state.h"
#include "../message/mail_messages.h"
#include "automation_exception.h"

namespace korvane {

class MailUser;
class MailServer;
class MailEngine;

class WebInterface : public Object, public ErrorState {
 public:
  WebInterface();
  ~WebInterface() override;

  std::string Version() const { return "Database"; }

  // The POP3 account in use; may be set before Init.
  void Username(const std::string& value);
  std::string Username() const;
  void Password(const std::string& value);
  std::string Password() const;
  void MailServer(const std::string& value);
  std::string MailServer() const;
  void ServerPort(int32_t value);
  int32_t ServerPort() const;
  void ServerTimeout(int32_t value);  ///< milliseconds
  int32_t ServerTimeout() const;
  void UserId(int32_t value);
  int32_t UserId() const { return user_id_; }
  void MailListPageSize(int32_t value);  ///< Init sets it to 25
  int32_t MailListPageSize() const;
  void ConnDataBase(std::shared_ptr<Connection> value) { connection_ = std::move(value); }

  /// Errors 1084 to 1086 and the account's.
  bool Init(const std::shared_ptr<BossObject>& oBoss, int32_t lAccountId = -100);
  bool Finish();

  // These raise AutomationException (1500) before a successful Init.
  bool VerifyAccount(int32_t lAccountId = -10);
  std::shared_ptr<MailMessages> GetListMessagesInBox(
      int32_t lBoxId, int32_t lServerId = -10, bool bDownloadHeaderOnly = true,
      bool bDeleteMessageOnMailServer = false, const std::string& sMsgSeparator = "",
      bool bFirstDownload = false, EMailOrder moMailOrder = EMailOrder::ORDER_DATA,
      EMailOrderDirection modMailOrderDirection = EMailOrderDirection::ORDER_DESC,
      int32_t lPageNum = -1, Any* lTotPages = nullptr, Any* lTotMails = nullptr,
      EMailOrderDirection modOrderDataDirection = EMailOrderDirection::ORDER_DESC);
  std::shared_ptr<MailMessage> GetMessage(int32_t lMessageId,
                                          bool bDeleteMessageOnMailServer = false,
                                          const std::string& sMessageSeparator = "");
  bool DeleteMessage(const Any& vMessagesId,
                     EDelType ldtDeleteType = EDelType::DEL_TYPE_LOCALE_SERVER);
  std::shared_ptr<MailMessage> NewMessage(const std::string& sMsgSeparator = "");
  bool BackgroundClean();

  /// For the command line and the site: what stands behind this facade.
  const std::shared_ptr<MailUser>& Account() const { return account_; }
  const std::shared_ptr<korvane::MailServer>& Server() const { return server_; }
  const std::shared_ptr<MailEngine>& Engine() const { return engine_; }

 private:
  void Guard();

  bool initialised_ = false;
  int32_t user_id_ = -100;
  std::shared_ptr<Connection> connection_;
  std::shared_ptr<MailUser> account_;
  std::shared_ptr<korvane::MailServer> server_;
  std::shared_ptr<MailEngine> engine_;
};

}  // namespace korvane
