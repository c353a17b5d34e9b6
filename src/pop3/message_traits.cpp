#include "pop3/message_traits.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "facade/mail_user.h"
#include "message/mail_message.h"
#include "message/row_text.h"
#include "mime/header_fields.h"
#include "mime/mail_date.h"
#include "pop3/received_time.h"

namespace korvane {
namespace {

/// How far the clocks of a sender and of this system may differ.
constexpr int64_t kClockTolerance = 60 * 60;

/// When the message was written, by its "date" line and that line's zone.
std::optional<int64_t> WrittenAt(const MailMessage& message) {
  std::string header = message.OriginalHeader();
  std::optional<int64_t> moment;
  for (const std::string_view line : UnfoldHeader(header)) {
    const size_t colon = std::min(line.find(':'), line.size());
    std::string name(TrimBlanks(line.substr(0, colon)));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (name != "date" || colon == line.size()) continue;
    bool guessed = false;
    // The routine for "received" values, which hold their date behind a ";", applies the zone.
    const std::string date =
        ParseMailDate(";" + std::string(line.substr(colon + 1)), true, true, guessed);
    moment = guessed ? std::nullopt : MomentOf(date);
  }
  return moment;
}

}  // namespace

MessageTraits MessageTraits::OfRow(const Recordset& row, const MailUser& account) {
  return {row.Field("mittente").ToText(), row.Field("oggetto").ToText(),
          PadDate(ArrangeDateOrder(row.Field("data").ToText(), account.DayFirst())),
          row.Field("dimensione").ToInt32().value_or(0)};
}

bool MessageTraits::Fit(const MailMessage& message) const {
  if (RowText(message.From(), kSenderCharacters) != sender ||
      RowText(message.Subject(ETextFormat::TextFormat_Normal), kSubjectCharacters) != subject) {
    return false;
  }
  if (size != 0 && message.Size() != 0 && size != message.Size()) return false;
  const auto downloaded = MomentOf(date);
  const auto written = WrittenAt(message);
  return !downloaded || !written || *written <= *downloaded + kClockTolerance;
}

}  // namespace korvane
