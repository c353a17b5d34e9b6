// A message written out again: whatever came, its lines are whole and hold no NUL, and it can be
// read again.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "facade/mail_user.h"
#include "message/mail_message.h"
#include "message/message_source.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  const auto account = std::make_shared<korvane::MailUser>();
  korvane::MailMessage message;
  if (!message.LoadWholeMessage(account, 1, static_cast<int32_t>(size), "", "", std::move(text))) {
    return 0;
  }
  std::string source = korvane::MessageSource(message, *account);
  for (size_t i = 0; i < source.size(); ++i) {
    const char next = i + 1 < source.size() ? source[i + 1] : '\0';
    if (source[i] == '\0' || (source[i] == '\r' && next != '\n')) std::abort();
    if (source[i] == '\n' && (i == 0 || source[i - 1] != '\r')) std::abort();
  }
  korvane::MailMessage again;
  if (!again.LoadWholeMessage(account, 1, 0, "", "", std::move(source))) std::abort();
  return 0;
}
