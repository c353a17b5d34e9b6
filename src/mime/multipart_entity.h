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

  /// The three ways to build an entity. `body` begins at the blank line behind the message's
  /// header, `range` at the line end of a delimiter line; both end with the part. `counter` is the
  /// last number given: the root has 0, its parts count on from there in document order. Errors
  /// 1014 and 1015, or 1030 when there is no part; 1017; 1016.
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
  /// The decoded body. Text that is no attachment is UTF-8, everything else bytes. Of an attachment
  /// that was read back it is empty: its content is in its file.
  const std::string& Data() const { return data_; }
  /// False when this was read back from a record.
  bool IsFreshlyParsed() const { return freshly_parsed_; }
  /// Where the attachment's file is kept; "" when it has none.
  std::string FilePath() const;
  const std::vector<std::shared_ptr<MultipartEntity>>& Children() const { return children_; }

  /// True when this entity or one below it is an attachment.
  bool HasAttachments() const;

  /// Names the whole tree for the message, rewrites the links of related parts and writes the
  /// attachment files (with `write_files`, and only freshly parsed content), and writes the entity
  /// blocks to `store` when it is not null. Paths of files that were written are appended to
  /// `written`; they are not synced. It may be called again under another number. Error 1028.
  bool SaveEntityFiles(int32_t message_id, RecordWriter* store, bool write_files,
                       std::vector<std::string>* written = nullptr);

  /// Reads the block of this entity and those of its children. False when the record is damaged.
  bool LoadEntity(const std::shared_ptr<MailUser>& account, int32_t& counter, RecordReader& store);

 private:
  friend class EntityParser;
  friend class RelatedLinks;

  bool TextOfPart(std::string& text, ETextAlternativeType alternative, ETextFormat format,
                  bool only_if_correct, std::string_view separator);
  bool TextOfChildren(std::string& text, ETextAlternativeType alternative, ETextFormat format,
                      bool only_if_correct, std::string_view separator, bool exit_on_first_find);
  bool TextOfAlternative(std::string& text, ETextAlternativeType alternative, ETextFormat format,
                         bool only_if_correct, std::string_view separator);
  /// A place in data_ that refers to a part of the same multipart/related.
  struct Link {
    size_t begin;
    size_t end;
    bool bare;  ///< an attribute's value without quotes, which the new one needs
    std::weak_ptr<MultipartEntity> target;
  };

  Reference FindRelatedReference() const;
  bool DecideAttachment() const;
  void DecodeBody(std::string_view body);
  void BecomePlainText(std::string_view body);
  void NameFiles(int32_t message_id, bool keep);
  void RewriteLinks(bool rewrite);
  bool SaveTree(RecordWriter* store, bool write_files, std::vector<std::string>* written);
  bool WriteFile(std::vector<std::string>* written);
  void WriteBlock(RecordWriter& store) const;
  bool LoadTree(const std::shared_ptr<MailUser>& account, int32_t& counter, RecordReader& store,
                int32_t depth);

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
  std::vector<Link> links_;
  std::string unlinked_html_;  ///< data_ before its links were rewritten; empty when they are not
  std::vector<std::shared_ptr<MultipartEntity>> children_;
};

}  // namespace korvane
