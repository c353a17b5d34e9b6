// The message in the store: its record in the user's message file and its row in "mail". The row
// points at the record, so the record and the attachment files are on the disk before anybody can
// commit the row. Committing, retrying and identifiers are the callers' work.
#include "facade/mail_user.h"
#include "frame/database.h"
#include "frame/debug_log.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/record_io.h"
#include "message/mail_message.h"
#include "message/message_file.h"
#include "message/row_text.h"
#include "mime/mail_date.h"

namespace korvane {

namespace {

void WriteContentClass(RecordWriter& writer, const ContentFields& fields) {
  writer.Int32(static_cast<int32_t>(fields.type));
  writer.Int32(static_cast<int32_t>(fields.subtype));
  writer.Int32(static_cast<int32_t>(fields.charset));
  writer.Int32(static_cast<int32_t>(fields.encoding));
  writer.Int32(static_cast<int32_t>(fields.disposition_kind));
}

void ReadContentClass(RecordReader& reader, ContentFields& fields) {
  fields.type = static_cast<EEntityType>(reader.Int32());
  fields.subtype = static_cast<EEntitySubType>(reader.Int32());
  fields.charset = static_cast<ECharset>(reader.Int32());
  fields.encoding = static_cast<EContentTransferEncoding>(reader.Int32());
  fields.disposition_kind = static_cast<EContentDisposition>(reader.Int32());
}

// The date of the row: of a download when it arrived, of a saved message when it says it was sent.
// What cannot be told is the present moment, so that no message sinks to the end of the box.
std::string RowDate(const std::string& date, const std::string& received, bool local) {
  std::string padded = PadDate(date);
  if (!local && !received.empty()) {
    // A received line without a year was completed with the last one; that is no date to sort by.
    const std::string known = NormaliseMailDate(SplitReceivedDate(received).date);
    if (known.substr(6, 4) == "????") padded = known;
  }
  if (padded.find('?') != std::string::npos && local) padded = NormaliseMailDate(date);
  if (padded.find('?') != std::string::npos) padded = PadDate(FormatNow());
  if (!IsInCalendar(padded)) padded.replace(0, 2, "28");
  return padded;
}

}  // namespace

bool MailMessage::StoreRecordAndRow(Recordset& row, BinaryFile& file, const StoreOptions& options,
                                    std::vector<std::string>* written) {
  ClearError();
  int64_t position = -1;
  std::vector<std::string> attachments;
  if (options.record) {
    // Always at the end, wherever the position stood: a record never lands on another one.
    const int64_t end = file.Length() + 1;
    if (end >= 1 && end <= kLastPosition && file.Seek(end)) {
      position = end;
      if (!WriteRecord(file, attachments) ||
          !(options.sync ? SyncRecord(file, end, attachments) : file.Flush())) {
        UndoStoredRecord(file, end, attachments);
        position = -1;
      }
    }
  }

  bool stored = true;
  if (options.write_row) {
    if (!FillRow(row, options, position)) {
      const bool record_failed = options.record && position == -1;
      SetError(record_failed ? error::RecordAndRowNotWritten : error::RowNotWritten);
      stored = false;
    }
  } else {
    stored = position != -1 && FillRow(row, options, position);
    if (!stored) SetError(position == -1 ? error::RecordAndRowNotWritten : error::RowNotWritten);
  }
  if (!stored && position != -1) UndoStoredRecord(file, position, attachments);
  if (written) {
    written->insert(written->end(), std::make_move_iterator(attachments.begin()),
                    std::make_move_iterator(attachments.end()));
  }
  return stored;
}

bool MailMessage::WriteRecord(BinaryFile& file, std::vector<std::string>& written) {
  RecordWriter writer(file);
  writer.Int32(kRecordVersion);
  writer.Int32(entity_ ? 1 : 0);
  writer.Int32(entity_ ? 0 : static_cast<int32_t>(uu_files_.size()));

  writer.Int32(id_on_server_);
  for (const std::string* text :
       {&encrypted_, &comments_, &keywords_, &references_, &in_reply_to_, &bcc_, &cc_, &sender_,
        &reply_to_, &subject_, &from_, &message_to_, &message_id_, &send_date_, &received_date_,
        &received_, &return_path_}) {
    writer.Text(*text);
  }
  writer.Int32(size_);
  writer.Bool16(exist_attachments_);
  for (const std::string* text :
       {&separator_, &mime_version_, &fields_.content_type, &fields_.transfer_encoding,
        &fields_.disposition, &fields_.location, &fields_.id}) {
    writer.Text(*text);
  }
  WriteContentClass(writer, fields_);
  writer.Text(original_header_);
  writer.Text(uidl_);
  // Without a folder for attachments nothing is written there, and it is the page that writes the
  // files of a message composed here. A uuencoded file leaves the text once it is written, so the
  // files come before the text.
  const bool files = account_ && !account_->PathAtcmts().empty();
  for (size_t i = 0; i < uu_blocks_.size(); ++i) {
    if (!uu_files_[i]->SaveUUFile(id_, nullptr, files, &written)) return false;
  }
  writer.Text(uu_blocks_.empty() ? body_text_ : TextWithoutUUFiles());
  writer.Int32(GetLastError());
  writer.Text(GetLastErrorDesc());
  if (!writer.Ok()) return false;

  if (entity_) return entity_->SaveEntityFiles(id_, &writer, files, &written) && writer.Ok();
  for (const auto& uu : uu_files_) {
    if (!uu->SaveUUFile(id_, &writer, false, nullptr)) return false;
  }
  return writer.Ok();
}

bool MailMessage::SyncRecord(BinaryFile& file, int64_t position,
                             const std::vector<std::string>& written) {
  for (const std::string& path : written) {
    if (!SyncFile(path)) return false;
  }
  if (!written.empty() && !SyncDirectory(account_->PathAtcmts())) return false;
  if (!file.Sync()) return false;
  // The first record may have made the file.
  return position != 1 || !account_ || SyncDirectory(account_->PathMessages());
}

bool MailMessage::FillRow(Recordset& row, const StoreOptions& options, int64_t position) {
  try {
    row.SetField("body_scaricato", Any(static_cast<int32_t>(position)));
    if (!options.write_row) return true;
    if (!account_) return false;
    const bool day_first = account_->DayFirst();
    row.SetField("id_mail", Any(id_));
    row.SetField("Letto", Any(false));
    row.SetField("mittente", Any(RowText(from_, kSenderCharacters)));
    row.SetField("destinatario", Any(RowText(message_to_)));
    // A saved message without a send date of its own has the time of its making.
    const std::string& date = options.local && !send_date_.empty() ? send_date_ : received_date_;
    row.SetField("data", Any(ArrangeDateOrder(RowDate(date, received_, options.local), day_first)));
    row.SetField("oggetto", Any(RowText(subject_, kSubjectCharacters)));
    row.SetField("dimensione", Any(size_));
    row.SetField("campo_received", Any(RowText(received_)));
    row.SetField("campo_MessageId", Any(RowText(message_id_, kMessageIdCharacters)));
    row.SetField("allegati", Any(exist_attachments_));
    row.SetField("IdSulServer", Any(id_on_server_));
    row.SetField("id_cartella", Any(account_->BoxId()));
    if (options.download) {
      row.SetField("DataDownload", Any(ArrangeDateOrder(FormatNow(), day_first)));
    }
    row.SetField("id_server", Any(options.local ? -1 : account_->AccountId()));
    row.SetField("id_utente", Any(account_->UserId()));
    row.SetField("Cancellata", Any(false));
    return true;
  } catch (const DatabaseError& fault) {
    if (account_) {
      WriteDebugLog(account_->DebugMode(), account_->PathLog(), "MailMessage.FillRow",
                    fault.what());
    }
    return false;
  }
}

bool MailMessage::LoadRecord(std::shared_ptr<MailUser> account, int32_t id, BinaryFile& file) {
  ClearError();
  account_ = std::move(account);
  id_ = id;
  entity_.reset();
  uu_files_.clear();
  uu_blocks_.clear();
  has_uu_list_ = false;
  last_uu_number_ = 0;
  attachments_.reset();

  RecordReader reader(file);
  if (!ReadRecord(reader) || !reader.Ok()) {
    entity_.reset();
    uu_files_.clear();
    has_uu_list_ = false;
    SetError(error::RecordNotRead);
  }
  return NoError();
}

bool MailMessage::ReadRecord(RecordReader& reader) {
  const int32_t version = reader.Int32();
  const int32_t has_entity = reader.Int32();
  const int32_t uu_files = reader.Int32();
  constexpr int64_t kSmallestUUBlock = 24;
  if (version < 1 || version > kRecordVersion || has_entity < 0 || has_entity > 1 || uu_files < 0 ||
      uu_files > reader.Remaining() / kSmallestUUBlock) {
    return false;
  }

  id_on_server_ = reader.Int32();
  for (std::string* text :
       {&encrypted_, &comments_, &keywords_, &references_, &in_reply_to_, &bcc_, &cc_, &sender_,
        &reply_to_, &subject_, &from_, &message_to_, &message_id_, &send_date_, &received_date_,
        &received_, &return_path_}) {
    *text = reader.Text();
  }
  size_ = reader.Int32();
  exist_attachments_ = reader.Bool16();
  for (std::string* text :
       {&separator_, &mime_version_, &fields_.content_type, &fields_.transfer_encoding,
        &fields_.disposition, &fields_.location, &fields_.id}) {
    *text = reader.Text();
  }
  ReadContentClass(reader, fields_);
  // The header as it came is bytes; everything else is text.
  original_header_ = version > 1 ? reader.Bytes() : std::string();
  uidl_ = version > 2 ? reader.Text() : std::string();
  body_text_ = reader.Text();
  // The fault that the message had when it was stored is not the fault of reading it.
  reader.Int32();
  reader.Text();
  if (!reader.Ok()) return false;

  if (has_entity == 1) {
    entity_ = std::make_shared<MultipartEntity>();
    int32_t counter = 0;
    if (!entity_->LoadEntity(account_, counter, reader)) return false;
  }
  for (int32_t i = 0; i < uu_files; ++i) {
    has_uu_list_ = true;
    auto uu = std::make_shared<UUAtcmt>();
    if (!uu->LoadUUFromStore(account_, ++last_uu_number_, reader)) return false;
    uu_files_.push_back(std::move(uu));
  }
  return reader.Ok();
}

bool MailMessage::FillFromRow(const Recordset& row) {
  try {
    const auto id = row.Field("id_mail").ToInt32();
    if (id) id_ = *id;
    const auto read = row.Field("Letto").ToBool();
    read_ = read.value_or(false);
    from_ = UndoubledQuotes(row.Field("mittente").ToText());
    message_to_ = UndoubledQuotes(row.Field("destinatario").ToText());
    const bool day_first = !account_ || account_->DayFirst();
    received_date_ = PadDate(ArrangeDateOrder(row.Field("data").ToText(), day_first));
    if (row.Field("id_server").ToInt32() == -1) send_date_ = received_date_;
    subject_ = UndoubledQuotes(row.Field("oggetto").ToText());
    size_ = row.Field("dimensione").ToInt32().value_or(0);
    exist_attachments_ = row.Field("allegati").ToBool().value_or(false);
    return id.has_value() && read.has_value();
  } catch (const DatabaseError& fault) {
    // A row that cannot be read is one row. A database that does not answer would have every
    // further one waited for.
    const auto kind = fault.kind();
    if (kind != DatabaseError::Kind::kOther && kind != DatabaseError::Kind::kChanged) throw;
    return false;
  }
}

}  // namespace korvane
