// MultipartEntity: one MIME entity (RFC 2045, RFC 2046) with its decoded data and its parts. A
// message builds one root; the root splits its body into children, each parses its own header.
// Scripts see GetMajorText and the error pair; the rest is for the message and attachment classes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../frame/any.h"
#include "../frame/enumerations.h"
#include "../frame/error_state.h"
#include "content_fields.h"

namespace korvane {

class MailUser;
class RecordWriter;
class RecordReader;

class MultipartEntity : public Object, public ErrorState {
 public:
  /// Appends the text to show to `sText`, each piece followed by the separator. True when this
  /// entity reports no error (1018 to 1027).
  bool GetMajorText(std::string& sText, ETextAlternativeType atAlternativeType,
                    ETextFormat tfTextFormat, bool bOnlyIfCorrect,
                    std::string_view sMessageSeparatorString, bool bExitOnFirstFind);

  // Everything below is internal to the library.

  /// Related reference: how HTML can refer to a part of a multipart/related.
  enum class Reference : int32_t { kNone = 0, kContentId, kLocation, kFileName, kTypeName };

  /// What the parse of one message shares: the whole text, the account and the running number.
  struct ParseContext;

  /// The three ways to build an entity. `body` is the range of the raw text; `counter` numbers the
  /// entities in document order, the root having 0.
  bool InitMultipartRoot(const ContentFields& fields, std::shared_ptr<MailUser> account,
                         int32_t& counter, std::string_view body);
  bool InitSinglePartRoot(const ContentFields& fields, std::shared_ptr<MailUser> account,
                          int32_t& counter, std::string_view body);
  bool InitChild(const MultipartEntity& parent, int32_t& counter, std::string_view range);

  int32_t EntityNumber() const { return entity_number_; }
  const ContentFields& Fields() const { return fields_; }
  const std::string& Boundary() const { return boundary_; }
  bool IsAttachment() const { return is_attachment_; }
  const std::string& Name() const { return name_; }
  const std::string& NameOnServer() const { return name_on_server_; }
  EEntitySubType ParentSubType() const { return parent_subtype_; }
  Reference RelatedReference() const { return related_reference_; }
  /// The decoded body. Text that is no attachment is UTF-8, everything else bytes.
  const std::string& Data() const { return data_; }
  const std::vector<std::shared_ptr<MultipartEntity>>& Children() const { return children_; }

  /// True when this entity or one below it is an attachment.
  bool HasAttachments() const;

  /// Names the whole tree for the message, writes the attachment files (with `write_files`), rewrites
  /// the links of related parts, and writes the entity blocks to `store` when it is not null. Paths
  /// of files that were written are appended to `written`. Error 1028.
  bool SaveEntityFiles(int32_t message_id, RecordWriter* store, bool write_files,
                       std::vector<std::string>* written = nullptr);

  /// Reads the block of this entity and those of its children. False when the record is damaged.
  bool LoadEntity(std::shared_ptr<MailUser> account, int32_t& counter, RecordReader& store);

 private:
  friend class EntityParser;
  friend class RelatedLinks;

  bool TextOfPart(std::string& text, ETextAlternativeType alternative, ETextFormat format,
                  bool only_if_correct, std::string_view separator);
  bool TextOfChildren(std::string& text, ETextAlternativeType alternative, ETextFormat format,
                      bool only_if_correct, std::string_view separator, bool exit_on_first_find);
  bool TextOfAlternative(std::string& text, ETextAlternativeType alternative, ETextFormat format,
                         bool only_if_correct, std::string_view separator);

  std::shared_ptr<MailUser> account_;
  int32_t entity_number_ = -1;
  ContentFields fields_;
  std::string boundary_;
  bool is_attachment_ = false;
  std::string name_;
  std::string name_on_server_;
  EEntitySubType parent_subtype_ = EEntitySubType::PredNotImportant;
  Reference related_reference_ = Reference::kNone;
  bool freshly_parsed_ = false;  ///< data_ is the sender's content, not what a record held
  std::string data_;
  std::vector<std::shared_ptr<MultipartEntity>> children_;
};

}  // namespace korvane
