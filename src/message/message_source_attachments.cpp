// The attachments of a message's source: fresh ones from memory, stored ones from their files.
#include "frame/files.h"
#include "message/source_writer.h"
#include "mime/header_fields.h"

namespace korvane::message_source {

bool SourceWriter::Attached(const MultipartEntity& entity, const ContentFields& fields) {
  std::string type = TypeOf(fields);
  const std::string charset = Parameter(fields.content_type, "charset");
  if (IsToken(charset)) type += EncodeParameter("charset", charset);
  AppendOtherParameters(type, fields.content_type);
  if (const std::string name = Parameter(fields.content_type, "name"); !name.empty()) {
    type += EncodeParameter("name", name);
  }
  Field("Content-Type", type);
  const std::string file_name = Parameter(fields.disposition, "filename");
  std::string disposition;
  if (fields.disposition_kind == EContentDisposition::ContDisp_Attachment) {
    disposition = "attachment";
  } else if (fields.disposition_kind == EContentDisposition::ContDisp_Inline) {
    disposition = "inline";
  } else if (!file_name.empty()) {
    // Some other word, which says the same as none.
    const std::string word = MediaType(fields.disposition);
    disposition = IsToken(word) ? word : "attached";
  }
  if (!disposition.empty()) {
    if (!file_name.empty()) disposition += EncodeParameter("filename", file_name);
    Field("Content-Disposition", disposition);
  }
  PlaceFields(fields);
  if (entity.IsFreshlyParsed()) return Bytes(fields.type, entity.Data());
  return File(entity.FilePath(), entity.Name());
}

bool SourceWriter::Bytes(EEntityType type, std::string_view bytes) {
  if (type == EEntityType::message && CanStandAsItIs(bytes)) {
    out_ += "Content-Transfer-Encoding: 8bit\r\n\r\n";
    out_ += bytes;
    return FlushWhenLarge();
  }
  out_ += "Content-Transfer-Encoding: base64\r\n\r\n";
  for (size_t from = 0; from < bytes.size(); from += kFileBlock) {
    out_ += EncodeBase64(bytes.substr(from, kFileBlock));
    if (!FlushWhenLarge()) return false;
  }
  return true;
}

bool SourceWriter::CanStandAsItIs(std::string_view message) {
  return HasCleanLines(message) &&
         message.find("--=_korvane_" + Digest()) == std::string_view::npos;
}

bool SourceWriter::File(const std::string& path, const std::string& name) {
  out_ += "Content-Transfer-Encoding: base64\r\n\r\n";
  BinaryFile file;
  if (path.empty() || !file.Open(path, BinaryFile::Mode::kRead)) {
    if (missing_) missing_->push_back(name);
    return true;
  }
  std::string block(kFileBlock, '\0');
  for (;;) {
    size_t filled = 0;
    while (filled < block.size()) {
      const int64_t more = file.ReadSome(block.data() + filled, block.size() - filled);
      if (more < 0 && missing_) missing_->push_back(name);
      if (more <= 0) break;
      filled += static_cast<size_t>(more);
    }
    out_ += EncodeBase64(std::string_view(block).substr(0, filled));
    if (!FlushWhenLarge()) return false;
    if (filled < block.size()) return true;
  }
}

bool SourceWriter::TextWithFiles(std::string_view text, const std::vector<const UUAtcmt*>& files) {
  const std::string boundary = NewBoundary();
  Field("Content-Type", "multipart/mixed" + EncodeParameter("boundary", boundary));
  out_ += "\r\n\r\n--" + boundary + "\r\n";
  if (!Text(message_.Fields(), text)) return false;
  for (const UUAtcmt* file : files) {
    out_ += "\r\n--" + boundary + "\r\nContent-Type: application/octet-stream\r\n";
    Field("Content-Disposition", "attachment" + EncodeParameter("filename", file->UUName()));
    if (!File(file->UUNameOnServer(), file->UUName())) return false;
  }
  out_ += "\r\n--" + boundary + "--\r\n";
  return true;
}

}  // namespace korvane::message_source
