#include "engine/mail_engine.h"

#include "frame/debug_log.h"
#include "frame/error_numbers.h"

namespace korvane {

bool MailEngine::Init(std::shared_ptr<MailUser> account, std::shared_ptr<MailServer> server,
                      std::shared_ptr<Connection> connection) {
  ClearError();
  account_ = std::move(account);
  server_ = std::move(server);
  connection_ = std::move(connection);
  return true;
}

/// Clears the error; false, with 1008, when there is nothing to work on.
bool MailEngine::Ready() {
  ClearError();
  if (account_ && server_ && connection_) return true;
  SetError(error::DatabaseFault);
  return false;
}

void MailEngine::TakeFault(std::string_view place, const std::exception& fault) {
  SetError(error::DatabaseFault);
  WriteDebugLog(account_->DebugMode(), account_->PathLog(), place, fault.what());
}

std::shared_ptr<MailMessages> MailEngine::GetListMessagesInBox(
    const SyncRequest& sync, const MailMessages::ListRequest& list, Any* tot_pages,
    Any* tot_mails) {
  if (!Ready()) return nullptr;
  try {
    Synchronise(sync);
  } catch (const std::exception& fault) {
    TakeFault("MailEngine.GetListMessagesInBox", fault);
  }
  // The error of the synchronisation stays: the pages show what is stored all the same.
  return ListPage(list, tot_pages, tot_mails);
}

std::shared_ptr<MailMessages> MailEngine::ListPage(const MailMessages::ListRequest& list,
                                                   Any* tot_pages, Any* tot_mails) {
  auto page = std::make_shared<MailMessages>();
  try {
    if (page->ListBox(account_, *connection_, list, tot_pages, tot_mails)) return page;
  } catch (const std::exception& fault) {
    WriteDebugLog(account_->DebugMode(), account_->PathLog(), "MailEngine.ListPage", fault.what());
  }
  SetError(error::ListingFailed);
  return page;
}

}  // namespace korvane
