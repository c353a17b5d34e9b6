#include "message/message_file.h"

#include "frame/enumerations.h"
#include "frame/record_io.h"

namespace korvane {

namespace {

std::string UserFile(const std::string& path_messages, int32_t user_id, std::string_view suffix) {
  if (path_messages.empty()) return {};
  return JoinPath(path_messages, std::to_string(user_id).append(suffix));
}

// One MIME part's block; how many parts follow below it.
int32_t SkipEntityBlock(RecordReader& reader) {
  constexpr int64_t kSmallestBlock = 78;
  if (reader.Int32() != 1) reader.Fail();
  const int32_t children = reader.Int32();
  if (children < 0 || children > reader.Remaining() / kSmallestBlock) reader.Fail();
  for (int i = 0; i < 6; ++i) reader.SkipText();  // five fields and the boundary
  const bool is_attachment = reader.Bool16();
  reader.SkipText();
  reader.SkipText();
  const int32_t type = reader.Int32();
  for (int i = 0; i < 6; ++i) reader.Int32();
  if (type == static_cast<int32_t>(EEntityType::Text) && !is_attachment) reader.SkipText();
  reader.Int32();
  reader.SkipText();
  return reader.Ok() ? children : 0;
}

void SkipUUBlock(RecordReader& reader) {
  if (reader.Int32() != 1) reader.Fail();
  for (int i = 0; i < 3; ++i) reader.SkipText();
  reader.Int32();
  reader.SkipText();
}

}  // namespace

std::string MessageFilePath(const std::string& path_messages, int32_t user_id) {
  return UserFile(path_messages, user_id, "_Messaggi.dat");
}

std::string MessageFilePath(const MailUser& account) {
  return MessageFilePath(account.PathMessages(), account.UserId());
}

std::string CompactedFilePath(const std::string& path_messages, int32_t user_id) {
  return UserFile(path_messages, user_id, "_Messaggi_tmp.dat");
}

std::string BackupFilePath(const std::string& path_messages, int32_t user_id) {
  return UserFile(path_messages, user_id, "_Messaggi_cpy.dat");
}

std::optional<RecordOutline> OutlineRecord(BinaryFile& file, int64_t position) {
  return OutlineRecord(file, position, file.Length());
}

std::optional<RecordOutline> OutlineRecord(BinaryFile& file, int64_t position,
                                           int64_t file_length) {
  if (!file.Seek(position)) return std::nullopt;
  RecordReader reader(file, file_length);
  const int64_t available = reader.Remaining();

  const int32_t version = reader.Int32();
  const int32_t has_entity = reader.Int32();
  const int32_t uu_files = reader.Int32();
  if (version < 1 || version > kRecordVersion || has_entity < 0 || has_entity > 1 || uu_files < 0) {
    return std::nullopt;
  }
  RecordOutline outline;
  reader.Int32();                                  // number on the server
  for (int i = 0; i < 17; ++i) reader.SkipText();  // Encrypted to ReturnPath
  outline.size = reader.Int32();
  reader.Bool16();
  for (int i = 0; i < 7; ++i) reader.SkipText();  // separator and MIME fields
  for (int i = 0; i < 5; ++i) reader.Int32();
  if (version > 1) reader.SkipText();
  if (version > 2) reader.SkipText();
  reader.SkipText();  // body
  reader.Int32();
  reader.SkipText();

  // The parts stand in document order, so only how many are still to come needs to be known.
  int64_t entities = has_entity;
  for (; reader.Ok() && entities > 0; --entities) entities += SkipEntityBlock(reader);
  for (int32_t i = 0; reader.Ok() && i < uu_files; ++i) SkipUUBlock(reader);
  if (!reader.Ok()) return std::nullopt;
  outline.length = available - reader.Remaining();
  return outline;
}

void UndoStoredRecord(BinaryFile& file, int64_t position, std::vector<std::string>& written) {
  // A cut that fails leaves dead bytes that no row points at; the next record goes behind them.
  if (position >= 1 && file.Truncate(position - 1)) file.Seek(position);
  for (const std::string& path : written) RemoveFile(path);
  written.clear();
}

}  // namespace korvane
