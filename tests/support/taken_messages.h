// What a selection took, as messages.
#pragma once

#include <algorithm>
#include <memory>
#include <vector>

#include "message/mail_message.h"
#include "pop3/new_messages.h"

namespace korvane::test {

/// Takes everything out of the collection; the newest first, as it was added.
inline std::vector<std::shared_ptr<MailMessage>> TakeAll(NewMessages& messages) {
  std::vector<std::shared_ptr<MailMessage>> taken;
  while (messages.Count() > 0) {
    taken.push_back(messages.TakeOldest());
    if (!taken.back()) return {};
  }
  std::reverse(taken.begin(), taken.end());
  return taken;
}

}  // namespace korvane::test
