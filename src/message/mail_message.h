// MailMessage: one message. It comes from the server (header or whole), from a row of a listing,
// from its record in the message file, or is composed. Header values are decoded UTF-8.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../frame/any.h"
#include "../frame/database.h"
#include "../frame/enumerations.h"
#include "../frame/error_state.h"
#include "../mime/content_fields.h"
#include "../mime/mail_attachments.h"
#include "../mime/multipart_entity.h"
#include "../mime/uu_attachment.h"

namespace korvane {

class MailUser;
class BinaryFile;
class RecordReader;

class MailMessage : public Object, public ErrorState {
 public:
  MailMessage();

  int32_t Id() const { return id_; }
  bool Letto() const { return read_; }  ///< true once the message was opened
  int32_t IdOnServer() const { return id_on_server_; }
  const std::string& MessageUIDL() const { return uidl_; }
  const std::string& MessageSeparator() const { return separator_; }
  void MessageSeparator(std::string value) { separator_ = std::move(value); }
  const std::string& OriginalHeader() const { return original_header_; }
  bool ExistAttachments() const { return exist_attachments_; }

  const std::string& ReturnPath() const { return return_path_; }
  std::string ReturnPathAddress() const;
  const std::string& ReplyTo() const { return reply_to_; }
  std::string ReplyToName() const;
  std::string ReplyToAddress() const;
  const std::string& From() const { return from_; }
  std::string FromName() const;
  std::string FromMailAddress() const;
  const std::string& Sender() const { return sender_; }
  std::string SenderName() const;
  std::string SenderAddress() const;
  const std::string& SendDate() const { return send_date_; }
  const std::string& ReceivedDate() const { return received_date_; }
  const std::string& MessageTo() const { return message_to_; }
  std::string MessageToName() const;
  std::string MessageToAddress() const;
  const std::string& CC() const { return cc_; }
  std::string CC_Name() const;
  std::string CC_Address() const;
  const std::string& BCC() const { return bcc_; }
  std::string BCC_Name() const;
  std::string BCC_Address() const;
  const std::string& MessageID() const { return message_id_; }
  const std::string& InReplyTo() const { return in_reply_to_; }
  const std::string& References() const { return references_; }
  const std::string& Keywords() const { return keywords_; }
  /// Only TextFormat_HTML returns HTML; every other value returns the subject as it is.
  std::string Subject(ETextFormat tfTextFormat = ETextFormat::TextFormat_HTML) const;
  const std::string& Comments() const { return comments_; }
  const std::string& Encrypted() const { return encrypted_; }
  const std::string& Received() const { return received_; }
  int32_t Size() const { return size_; }

  // A message being composed.
  void NM_ReplyTo(std::string value) { reply_to_ = std::move(value); }
  void NM_From(const std::string& value);
  void NM_Sender(std::string value) { sender_ = std::move(value); }
  void NM_SendDate(const std::string& value);
  void NM_MessageTo(const std::string& value);
  void NM_CC(std::string value) { cc_ = std::move(value); }
  void NM_BCC(std::string value) { bcc_ = std::move(value); }
  void NM_InReplyTo(std::string value) { in_reply_to_ = std::move(value); }
  void NM_Subject(std::string value) { subject_ = std::move(value); }
  void NM_MessageBody(std::string value) { body_text_ = std::move(value); }
  void NM_Size(int32_t value) { size_ = value; }

  /// The text to show. Errors 1059, 1060, 1087, 1088.
  bool MessageBody(std::string& sMessageBody,
                   ETextAlternativeType taAlternativeType = ETextAlternativeType::AlterType_Html,
                   ETextFormat tfTextFormat = ETextFormat::TextFormat_HTML,
                   bool bOnlyIfAlterTypeIsCorrect = false);
  std::shared_ptr<MailAttachments> GetAttachments();
  std::shared_ptr<MailAttachment> NM_NewAttachment();
  /// Stores the composed message in a box. Errors 1051 and 1052.
  bool NM_Save(const std::shared_ptr<Connection>& cnnDataBase, int32_t lIdBoxToSaveIn = 3);

  // Everything below is internal to the library.

  /// From the server: the header alone, or the whole message. Errors 1049 and 1050.
  bool LoadHeader(std::shared_ptr<MailUser> account, int32_t number, int32_t size,
                  std::string_view uidl, std::string header);
  bool LoadWholeMessage(std::shared_ptr<MailUser> account, int32_t number, int32_t size,
                        std::string_view uidl, std::string_view separator, std::string text);
  /// Prepares a new message.
  void PrepareNew(std::shared_ptr<MailUser> account, std::string_view separator);

  void SetId(int32_t id) { id_ = id; }
  void SetIdOnServer(int32_t number) { id_on_server_ = number; }
  void SetAccount(std::shared_ptr<MailUser> account) { account_ = std::move(account); }

  /// Fills the fields that a listing shows from a row of "mail"; false when the row is unreadable.
  /// Throws DatabaseError when the database does not answer.
  bool FillFromRow(const Recordset& row);

  /// What StoreRecordAndRow needs to know beside the message.
  struct StoreOptions {
    bool local = false;     ///< saved here (NM_Save), not downloaded
    bool download = true;   ///< write DataDownload
    bool write_row = true;  ///< fill the whole row; else only body_scaricato
    bool record = true;     ///< false for a header alone: only the row, with body_scaricato -1
    bool sync = true;       ///< else the caller puts the file and `written` on the disk itself
  };
  /// Appends the record at the end of the file, writes the attachment files, puts both on the disk
  /// and fills `row` (nothing is updated yet). A record that cannot be written leaves the file as
  /// long as it was and no attachment file, and the row gets body_scaricato -1. The same when the
  /// row cannot be filled: then false with 1055, or 1056 when the record had failed as well. With
  /// write_row off the result is whether the record was written. Paths of attachment files that
  /// were written are appended to `written`: a caller that then cannot commit the row hands them,
  /// with the row's body_scaricato, to UndoStoredRecord.
  bool StoreRecordAndRow(Recordset& row, BinaryFile& file, const StoreOptions& options,
                         std::vector<std::string>* written = nullptr);
  /// Reads the record at the file's position. Error 1057.
  bool LoadRecord(std::shared_ptr<MailUser> account, int32_t id, BinaryFile& file);

  /// Header and body classification of the message itself.
  const ContentFields& Fields() const { return fields_; }
  const std::shared_ptr<MultipartEntity>& Entity() const { return entity_; }
  const std::vector<std::shared_ptr<UUAtcmt>>& UUFiles() const { return uu_files_; }
  /// The text of a message that is text itself; uuencoded blocks that were found in it included.
  const std::string& BodyText() const { return body_text_; }

 private:
  void BindToServer(std::shared_ptr<MailUser> account, int32_t number, int32_t size,
                    std::string_view uidl);
  void DropBody();
  size_t TakeHeader(std::string_view text);
  void TakeWhole(std::string text);
  std::string DecodedText(std::string text, size_t begin) const;
  std::string* FieldNamed(std::string_view name, bool& holds_addresses);
  void FindUUFiles();
  std::string TextWithoutUUFiles() const;
  bool WriteRecord(BinaryFile& file, std::vector<std::string>& written);
  bool SyncRecord(BinaryFile& file, int64_t position, const std::vector<std::string>& written);
  bool FillRow(Recordset& row, const StoreOptions& options, int64_t position);
  bool ReadRecord(RecordReader& reader);
  int32_t SaveInto(Connection& connection, BinaryFile& file);
  int32_t AddSaved(Connection& connection, BinaryFile& file, int64_t& position,
                   std::vector<std::string>& written);

  std::shared_ptr<MailUser> account_;
  int32_t id_ = -1;
  bool read_ = false;
  int32_t id_on_server_ = -10;
  std::string uidl_;
  std::string encrypted_;
  std::string comments_;
  std::string keywords_;
  std::string references_;
  std::string in_reply_to_;
  std::string bcc_;
  std::string cc_;
  std::string sender_;
  std::string reply_to_;
  std::string subject_;
  std::string from_;
  std::string message_to_;
  std::string message_id_;
  std::string send_date_;
  std::string received_date_;
  std::string received_;
  std::string return_path_;
  int32_t size_ = 0;
  bool exist_attachments_ = false;
  std::string separator_ = "<BR><BR><HR><BR>";
  std::string mime_version_;
  ContentFields fields_;
  std::string original_header_;
  std::string body_text_;
  std::shared_ptr<MultipartEntity> entity_;
  std::vector<std::shared_ptr<UUAtcmt>> uu_files_;
  std::vector<UUBlock> uu_blocks_;  ///< where the first of uu_files_ lie in body_text_
  bool has_uu_list_ = false;
  int32_t last_uu_number_ = 0;
  std::shared_ptr<MailAttachments> attachments_;
};

}  // namespace korvane
