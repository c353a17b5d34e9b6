// A page of headers, the newest messages first.
#include <algorithm>
#include <utility>

#include "facade/mail_user.h"
#include "frame/error_numbers.h"
#include "pop3/mail_server.h"

namespace korvane {
namespace {

/// A server that counts messages that it does not have must not keep the page going for ever.
constexpr int32_t kMostMissingInARow = 100;

}  // namespace

std::shared_ptr<MailMessages> MailServer::GetHeadersPage(int32_t page, Any* total_pages,
                                                         Any* total_messages) {
  if (!Begin()) return nullptr;
  if (!Stat() || !count_read_) {
    if (NoError()) SetError(error::PageHeaderFailed);
    return nullptr;
  }
  if (total_messages) *total_messages = message_count_;

  // The messages of the page by their position among those that are there, counted from the newest.
  int64_t skip = 0;
  int64_t wanted = message_count_;
  if (page != -1) {
    const int64_t size = user_->MailListPageSize();
    if (size <= 0) {
      SetError(error::PageOutOfRange);
      return nullptr;
    }
    const int64_t pages = message_count_ / size + (message_count_ % size != 0 ? 1 : 0);
    if (total_pages) *total_pages = pages;
    if (page < 1 || page > pages) wanted = 0;
    skip = std::max<int64_t>(int64_t{page} - 1, 0) * size;
    wanted = std::min(wanted, size);
  }

  // Each deleted number on the way moves the first one of the page down by one.
  auto number = static_cast<int32_t>(std::max<int64_t>(LastNumber() - skip, 0));
  for (auto deleted = deleted_.rbegin(); deleted != deleted_.rend() && *deleted >= number;
       ++deleted) {
    --number;
  }

  auto messages = std::make_shared<MailMessages>();
  bool failed = false;
  int32_t missing = 0;
  for (; number >= 1 && wanted > 0; --number) {
    if (IsDeleted(number)) continue;
    --wanted;
    ClearError();
    if (auto message = FetchHeader(number)) {
      messages->Add(std::move(message), number);
      missing = 0;
      continue;
    }
    failed = true;
    if (!IsIdle() || ++missing == kMostMissingInARow) break;
  }
  ClearError();
  if (failed) SetError(error::PageHeaderFailed);
  return messages;
}

}  // namespace korvane
