// BasicInterface: the reduced facade. It works on the POP3 mailbox directly, without database,
// registry or message file, and keeps one session open from Init to Finish.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "../frame/any.h"
#include "../frame/error_state.h"
#include "../message/mail_messages.h"
#include "automation_exception.h"

namespace korvane {

class MailUser;
class MailServer;

class BasicInterface : public Object, public ErrorState {
 public:
  BasicInterface();
  ~BasicInterface() override;  ///< ends an open session with QUIT

  std::string Version() const { return "SMS"; }

  void Username(const std::string& value);
  std::string Username() const;
  void Password(const std::string& value);
  std::string Password() const;
  void MailServer(const std::string& value);
  std::string MailServer() const;
  void ServerPort(int32_t value);
  int32_t ServerPort() const;
  void ServerTimeout(int32_t value);
  int32_t ServerTimeout() const;
  void UserId(int32_t value);
  int32_t UserId() const;
  void MailListPageSize(int32_t value);
  int32_t MailListPageSize() const;

  bool Init(bool bOpenConnection = true);
  bool Finish();

  // These raise AutomationException (1499) before a successful Init.
  std::shared_ptr<MailMessages> GetListMessagesInBox(int32_t lBoxId, int32_t lPageNum = -1,
                                                     Any* lTotPages = nullptr,
                                                     Any* lTotMails = nullptr);
  std::shared_ptr<MailMessage> GetMessage(int32_t lMessageId,
                                          const std::string& sMessageSeparator = "");
  std::shared_ptr<MailMessage> GetMessageUIDL(int32_t lMessageId, const std::string& sUIDL_mail,
                                              const std::string& sMessageSeparator = "");
  bool DeleteMessage(int32_t lMessageId);
  bool DeleteMessageUIDL(int32_t lMessageId, const std::string& sUIDL_mail);

 private:
  void Guard();
  void TakeError(bool by_unique_id);

  bool initialised_ = false;
  bool connected_ = false;
  std::shared_ptr<MailUser> account_;
  std::shared_ptr<korvane::MailServer> server_;
};

}  // namespace korvane
