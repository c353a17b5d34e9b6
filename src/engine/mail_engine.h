// MailEngine: the work behind WebInterface. It brings the store up to date with the POP3 accounts,
// lists boxes, opens and deletes messages.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "../facade/mail_user.h"
#include "../frame/database.h"
#include "../frame/error_state.h"
#include "../message/mail_messages.h"
#include "../pop3/mail_server.h"

namespace korvane {

class MailEngine : public Object, public ErrorState {
 public:
  bool Init(std::shared_ptr<MailUser> account, std::shared_ptr<MailServer> server,
            std::shared_ptr<Connection> connection);

  /// What a synchronisation is asked for.
  struct SyncRequest {
    int32_t server_id = MailUser::kNoAccount;  ///< -100 all, -10 the current, -1 none, or one
    bool header_only = true;
    bool delete_on_server = false;
    std::string separator;
    bool first_download = false;  ///< the caller declares that nothing was downloaded before
  };
  std::shared_ptr<MailMessages> GetListMessagesInBox(const SyncRequest& sync,
                                                     const MailMessages::ListRequest& list,
                                                     Any* tot_pages, Any* tot_mails);
  /// Errors 1001 to 1003 and those of the client, the account and the message.
  std::shared_ptr<MailMessage> GetMessage(int32_t message_id, std::string_view separator,
                                          bool delete_on_server);
  /// `ids`: a number, or a text of decimal numbers separated by ",". Error 1004.
  bool DeleteMessage(const Any& ids, EDelType type);

 private:
  std::shared_ptr<MailUser> account_;
  std::shared_ptr<MailServer> server_;
  std::shared_ptr<Connection> connection_;
};

}  // namespace korvane
