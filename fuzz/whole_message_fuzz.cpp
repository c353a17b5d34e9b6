// A message as a server might send it: taken in whole and as a header alone, and everything that a
// page asks of it.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "frame/code_page.h"
#include "message/mail_message.h"

namespace {

using korvane::MailMessage;

void Ask(MailMessage& message) {
  for (const std::string& text :
       {message.ReturnPathAddress(), message.ReplyToName(), message.ReplyToAddress(),
        message.FromName(), message.FromMailAddress(), message.SenderName(),
        message.SenderAddress(), message.SendDate(), message.ReceivedDate(),
        message.MessageToName(), message.MessageToAddress(), message.CC_Name(),
        message.CC_Address(), message.BCC_Name(), message.BCC_Address(), message.Subject(),
        message.Keywords(), message.References(), message.Received()}) {
    if (!korvane::IsUtf8(text)) std::abort();
  }
  std::string body;
  for (const int32_t alternative : {0, 1, 2, 7}) {
    for (const int32_t format : {0, 1, 2, 7}) {
      for (const bool strict : {false, true}) {
        message.MessageBody(body, static_cast<korvane::ETextAlternativeType>(alternative),
                            static_cast<korvane::ETextFormat>(format), strict);
        if (!korvane::IsUtf8(body)) std::abort();
      }
    }
  }
  const auto list = message.GetAttachments();
  for (int32_t i = 1; i <= list->Count(); ++i) {
    if (list->ItemIndex(i)->Name().empty()) std::abort();
  }
  if (message.Entity() && message.ExistAttachments() != (list->Count() > 0)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  MailMessage whole;
  if (whole.LoadWholeMessage(nullptr, 1, 0, "", "<hr>", text) != !text.empty()) std::abort();
  Ask(whole);
  MailMessage header;
  if (header.LoadHeader(nullptr, 1, 0, "", text) != !text.empty()) std::abort();
  Ask(header);
  if (header.ExistAttachments() || header.Entity()) std::abort();
  return 0;
}
