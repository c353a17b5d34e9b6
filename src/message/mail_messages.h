// MailMessages: an ordered collection of messages with their Ids as keys; one page of a box.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "../frame/any.h"
#include "../frame/enumerations.h"
#include "../frame/error_state.h"
#include "../frame/keyed_collection.h"
#include "mail_message.h"

namespace korvane {

class MailUser;

class MailMessages : public Object, public ErrorState {
 public:
  void Add(std::shared_ptr<MailMessage> oMessage, int32_t lKey);
  /// By position, counted from 1. Error 9 when there is none.
  std::shared_ptr<MailMessage> ItemIndex(int32_t lIndex);
  /// By the message's Id. Error 5 when there is none.
  std::shared_ptr<MailMessage> Item(int32_t lKey);
  int32_t Count() const { return static_cast<int32_t>(items_.size()); }

  // Internal.
  const std::vector<std::shared_ptr<MailMessage>>& Items() const { return items_.items(); }

  /// What a listing of a box is asked for.
  struct ListRequest {
    EMailOrder order = EMailOrder::ORDER_DATA;
    EMailOrderDirection direction = EMailOrderDirection::ORDER_DESC;
    EMailOrderDirection date_direction = EMailOrderDirection::ORDER_DESC;
    int32_t page = -1;  ///< from 1; -1 is the whole box
  };
  /// Fills the collection with a page of the account's box. `tot_pages` and `tot_mails` are written
  /// when they are not null. Errors 1061 and 1089; 1008 for a fault of the database.
  bool ListBox(const std::shared_ptr<MailUser>& account, Connection& connection,
               const ListRequest& request, Any* tot_pages, Any* tot_mails);

  /// For the routines that store a collection: takes over a message's error.
  void TakeErrorOf(const ErrorState& inner) { CopyError(inner); }
  void ResetError() { ClearError(); }

 private:
  void ReadPage(const std::shared_ptr<MailUser>& account, Connection& connection,
                const ListRequest& request, Any* tot_pages, Any* tot_mails);

  KeyedCollection<MailMessage> items_;
};

}  // namespace korvane
