// What writes a message's source, by concern: the header, the tree of parts with their texts and
// links, and the attachments. Only the files of message_source include this.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "../facade/mail_user.h"
#include "../mime/content_encoding.h"
#include "../mime/multipart_entity.h"
#include "../mime/uu_attachment.h"
#include "mail_message.h"
#include "message_source.h"

namespace korvane::message_source {

inline constexpr std::string_view kLineEnd = "\r\n";
/// A file is encoded in pieces of this many bytes, so that a large one is never in memory whole.
inline constexpr size_t kFileBlock = kBase64Line * 4096;

bool IsToken(std::string_view text);
/// The type as it was given, unless it is no type or the part is kept as another one.
std::string TypeOf(const ContentFields& fields);
/// Appends the parameters of a field that are not made anew.
void AppendOtherParameters(std::string& out, std::string_view value);

/// What the message's text has to be made from, and the boundaries that it must not hold.
class SourceWriter {
 public:
  SourceWriter(MailMessage& message, const MailUser& account, const SourceSink& sink,
               std::vector<std::string>* missing)
      : message_(message), account_(account), sink_(sink), missing_(missing) {}

  bool Write();

 private:
  bool Flush();
  bool FlushWhenLarge();
  // No encoded content holds "=_", and a message that holds this is not carried as it is. The sign
  // at the end keeps one boundary from being the beginning of another.
  std::string NewBoundary();
  // Depends on the message alone, so that two exports of it are equal.
  const std::string& Digest();
  void Field(std::string_view name, const std::string& encoded);

  void Header();
  // Line by line; a field goes with its continuations. What is no field is left out.
  void OriginalHeader();
  void NewHeader();

  void NoteParts(const MultipartEntity& entity);
  bool Entity(const MultipartEntity& entity, const ContentFields* root, size_t related);
  bool Multipart(const MultipartEntity& entity, const ContentFields& fields, size_t related);
  // A text, with the fields that tell how to read it.
  bool Text(const ContentFields& fields, std::string_view text);
  void PlaceFields(const ContentFields& fields);
  // The addresses of published files become what the sender called the parts.
  std::string WithPartLinks(std::string_view html) const;

  bool Attached(const MultipartEntity& entity, const ContentFields& fields);
  bool Bytes(EEntityType type, std::string_view bytes);
  bool CanStandAsItIs(std::string_view message);
  bool File(const std::string& path, const std::string& name);
  bool TextWithFiles(std::string_view text, const std::vector<const UUAtcmt*>& files);

  MailMessage& message_;
  const MailUser& account_;
  const SourceSink& sink_;
  std::vector<std::string>* missing_;
  std::string out_;
  std::string digest_;
  int boundaries_ = 0;
  std::unordered_map<std::string, std::string> links_;  ///< by the name of the stored file
};

}  // namespace korvane::message_source
