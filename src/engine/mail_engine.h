// MailEngine: the work behind WebInterface. It brings the store up to date with the POP3 accounts,
// lists boxes, opens and deletes messages.
//
// What it keeps in order: a user's lock comes before a database transaction, and neither is held
// across a POP3 command. What points at a record is committed after the record is on the disk. A
// deletion on the server becomes final (QUIT) only after everything that the session stored is
// committed; where the session dies before, the rows that it marked are put back.
//
// No operation throws; a database fault without a number of its own is 1008.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../facade/mail_user.h"
#include "../frame/database.h"
#include "../frame/error_state.h"
#include "../message/mail_messages.h"
#include "../pop3/mail_server.h"

namespace korvane {

class BinaryFile;
class ServerDeletions;
struct LastDownload;

class MailEngine : public Object, public ErrorState {
 public:
  bool Init(std::shared_ptr<MailUser> account, std::shared_ptr<MailServer> server,
            std::shared_ptr<Connection> connection);

  /// For operators; a page's calls leave these off.
  struct Options {
    /// After a complete run under look-ups without a fault, the account's bookkeeping becomes what
    /// a clean first download leaves (account_settling.h).
    bool settle = false;
    /// Look every message on the server up once, whatever the last-download time says: the remedy
    /// for mail that a wrong clock hid.
    bool deep = false;
  };
  void SetOptions(Options options) { options_ = options; }

  /// Called while downloaded messages are stored: messages done, messages altogether.
  using Progress = std::function<void(int32_t stored, int32_t total)>;
  void OnStored(Progress progress) { on_stored_ = std::move(progress); }

  /// What a synchronisation is asked for.
  struct SyncRequest {
    int32_t server_id = MailUser::kNoAccount;  ///< -100 all, -10 the current, -1 none, or one
    bool header_only = true;
    bool delete_on_server = false;
    std::string separator;
    bool first_download = false;  ///< the caller declares that nothing was downloaded before
  };
  /// Synchronises, then returns a page of the current box; the page also when an error of the
  /// synchronisation is set. Errors 1005 to 1008 and those of the account, the client and the
  /// messages.
  std::shared_ptr<MailMessages> GetListMessagesInBox(const SyncRequest& sync,
                                                     const MailMessages::ListRequest& list,
                                                     Any* tot_pages, Any* tot_mails);
  /// Opens a message; fetches it first when only its header is here, and the account it came from
  /// then stays loaded. Errors 1001 to 1003, 1008 and those of the client, the account and the
  /// message.
  std::shared_ptr<MailMessage> GetMessage(int32_t message_id, std::string_view separator,
                                          bool delete_on_server);
  /// `ids`: a number, or a text of decimal numbers separated by ",". Errors 1004, 1008 and those of
  /// the account and the client.
  bool DeleteMessage(const Any& ids, EDelType type);

 private:
  class Session;
  class Remembered;
  struct Doomed;
  struct FetchPlan;

  // mail_engine.cpp
  bool Ready();
  void TakeFault(std::string_view place, const std::exception& fault);
  std::shared_ptr<MailMessages> ListPage(const MailMessages::ListRequest& list, Any* tot_pages,
                                         Any* tot_mails);

  // synchronisation.cpp
  void Synchronise(const SyncRequest& sync);
  void SyncAccount(const SyncRequest& sync);
  void SyncOpenAccount(const SyncRequest& sync, Session& session);

  // retrieval.cpp
  std::shared_ptr<MailMessage> OpenMessage(int32_t message_id, std::string_view separator,
                                           bool delete_on_server);
  std::shared_ptr<MailMessage> LoadStored(int32_t message_id, int64_t position);
  std::shared_ptr<MailMessage> FetchFromServer(const FetchPlan& plan, std::string_view separator,
                                               bool delete_on_server);
  bool StoreFetched(const FetchPlan& plan, std::shared_ptr<MailMessage>& fetched);
  bool WriteFetched(const FetchPlan& plan, MailMessage& message, BinaryFile& file,
                    std::vector<std::string>& files);
  std::shared_ptr<Recordset> OpenRow(int32_t message_id);
  void MarkRead(int32_t message_id);

  // deletion.cpp
  std::vector<Doomed> ReadDoomed(const std::vector<int32_t>& ids);
  int64_t DeleteOfAccount(std::vector<Doomed>& rows, EDelType type, bool& loaded);
  void DeleteOnServer(Doomed& row, Session& session, bool& refused);
  int64_t MarkDeleted(std::vector<Doomed>& rows, EDelType type, ServerDeletions& deletions);

  std::shared_ptr<MailUser> account_;
  std::shared_ptr<MailServer> server_;
  std::shared_ptr<Connection> connection_;
  Options options_;
  Progress on_stored_;
};

}  // namespace korvane
