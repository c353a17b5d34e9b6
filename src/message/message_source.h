// A message as the text that can leave the system (RFC 5322, RFC 2045): its header as it came, or
// one made of its fields where it was composed here, and its content encoded anew, attachments from
// their files. The links that show related parts on a site become what they were ("cid:"). Read by
// this library again, the text gives the same fields, texts, attachment names and bytes.
//
// What the store does not keep cannot come back: the preamble of a multipart, the fields of parts
// beside the five of MIME, the original encodings, so no signature over a body holds.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class MailMessage;
class MailUser;

/// Takes a piece of the text; false stops the writing.
using SourceSink = std::function<bool(std::string_view)>;

/// Lines end with CR LF, there are no transport dots. False when the sink stopped it. An attachment
/// whose file cannot be read has an empty part; its name is appended to `missing`.
bool WriteMessageSource(MailMessage& message, const MailUser& account, const SourceSink& sink,
                        std::vector<std::string>* missing = nullptr);

/// The same as one text.
std::string MessageSource(MailMessage& message, const MailUser& account,
                          std::vector<std::string>* missing = nullptr);

}  // namespace korvane
