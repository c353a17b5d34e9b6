#include "mime/uu_attachment.h"

#include <algorithm>
#include <limits>

#include "Tarsel_MailConversions.h"
#include "facade/mail_user.h"
#include "frame/code_page.h"
#include "frame/error_numbers.h"
#include "frame/files.h"
#include "frame/record_io.h"
#include "mime/header_fields.h"
#include "mime/line_search.h"
#include "mime/stored_name.h"

namespace korvane {

namespace {

constexpr auto kNone = std::string_view::npos;
constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBegin = "begin ";
constexpr std::string_view kEndMarker = "\r\n`\r\nend";
constexpr std::string_view kDefaultName = "Stream.dat";
constexpr size_t kModeAt = 6;  // behind "begin "
constexpr size_t kModeSize = 3;
constexpr size_t kNameAt = kModeAt + kModeSize + 1;
constexpr size_t kLongestName = 255;
constexpr int32_t kBlockMarker = 1;

bool IsMode(std::string_view text) {
  text = TrimBlanks(text);
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsNameLength(std::string_view name) {
  if (name.size() <= kLongestName) return !name.empty();
  // At most four bytes a character: anything longer need not be looked at.
  if (name.size() > 4 * kLongestName) return false;
  const std::string text = ToUtf8(std::string(name));
  return CutCharacters(text, kLongestName).size() == text.size();
}

std::string BareName(std::string_view name) {
  for (const char separator : {'\\', '/', ':'}) {
    const size_t at = name.rfind(separator);
    if (at != kNone) name.remove_prefix(at + 1);
  }
  return name.empty() ? std::string(kDefaultName) : ToUtf8(std::string(name));
}

// The encoded lines of a block, from `data_at` to the line of the grave accent.
std::string_view EncodedLines(std::string_view block, size_t data_at) {
  constexpr size_t kEndSize = 3;
  if (block.size() < kEndSize + kLineEnd.size()) return {};
  // The line break before "end".
  const size_t last = block.rfind(kLineEnd, block.size() - kEndSize - kLineEnd.size());
  if (last == kNone || last < data_at) return {};
  constexpr std::string_view kEmptyLine = "\r\n`\r\n";
  const size_t behind = last + kLineEnd.size();
  if (behind >= kEmptyLine.size() && block.substr(0, behind).ends_with(kEmptyLine)) {
    const size_t empty_line = behind - kEmptyLine.size();
    return empty_line > data_at ? block.substr(data_at, empty_line - data_at) : std::string_view{};
  }
  return block.substr(data_at, last - data_at);
}

std::string Decode(std::string_view lines) {
  std::string data;
  if (lines.empty() || lines.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
    return data;
  }
  data.resize(lines.size() / 4 * 3 + lines.size() % 4 * 3 / 4 + 2);
  auto length = static_cast<int32_t>(lines.size());
  UUDecode(lines.data(), data.data(), &length);
  data.resize(static_cast<size_t>(length));
  return data;
}

}  // namespace

bool UUBlockFinder::NextBegin(size_t& begin) {
  if (!start_examined_) {
    start_examined_ = true;
    if (text_.substr(position_).starts_with(kBegin)) {
      begin = position_;
      return true;
    }
  }
  for (size_t at = position_;; at += kLineEnd.size()) {
    at = FindLineEndBefore(text_, at, text_.size(), "be");
    if (at == kNone) return false;
    begin = at + kLineEnd.size();
    if (text_.substr(begin).starts_with(kBegin)) return true;
  }
}

size_t UUBlockFinder::EndMarkerFrom(size_t from) {
  if (!end_marker_known_ || (end_marker_ != kNone && end_marker_ < from)) {
    end_marker_ = text_.find(kEndMarker, from);
    end_marker_known_ = true;
  }
  return end_marker_;
}

bool UUBlockFinder::Next(UUBlock& block) {
  size_t begin = 0;
  while (NextBegin(begin)) {
    const size_t mode = begin + kModeAt;
    const size_t name = begin + kNameAt;
    if (name > text_.size()) break;
    if (!IsMode(text_.substr(mode, kModeSize))) {
      position_ = mode;
      continue;
    }
    // A line that ends right behind the mode has no name; the next line's text is none.
    if (text_.substr(name - 1).starts_with(kLineEnd)) {
      position_ = name - 1;
      continue;
    }
    const size_t line_end = text_.find(kLineEnd, name);
    if (line_end == kNone) break;
    if (!IsNameLength(text_.substr(name, line_end - name))) {
      position_ = line_end;
      continue;
    }
    const size_t marker = EndMarkerFrom(line_end);
    if (marker == kNone) break;
    const size_t end = marker + kEndMarker.size();
    if (text_.size() - end >= kLineEnd.size() && text_.substr(end, 2) != kLineEnd) {
      position_ = line_end;
      continue;
    }
    block = {begin, end};
    position_ = end;
    return true;
  }
  position_ = text_.size();
  return false;
}

void UUAtcmt::Reset(std::shared_ptr<MailUser> account, int32_t number) {
  ClearError();
  account_ = std::move(account);
  number_ = number;
  mode_.clear();
  name_.clear();
  name_on_server_.clear();
  data_.clear();
  origin_ = Origin::kNone;
}

bool UUAtcmt::InitFromText(std::shared_ptr<MailUser> account, int32_t number,
                           std::string_view block) {
  Reset(std::move(account), number);
  if (block.size() > kModeAt) mode_ = TrimBlanks(block.substr(kModeAt, kModeSize));
  if (!IsMode(mode_)) {
    SetError(error::UUModeNotNumeric);
    return false;
  }
  const size_t line_end = block.size() > kNameAt ? block.find(kLineEnd, kNameAt) : kNone;
  if (line_end == kNone) {
    SetError(error::UUNameWithoutEnd);
    return false;
  }
  const std::string_view name = block.substr(kNameAt, line_end - kNameAt);
  if (!IsNameLength(name)) {
    SetError(error::UUNameBad);
    return false;
  }
  name_ = BareName(name);
  data_ = Decode(EncodedLines(block, line_end + kLineEnd.size()));
  origin_ = Origin::kDecoded;
  return true;
}

void UUAtcmt::InitForNew(std::shared_ptr<MailUser> account, int32_t number) {
  Reset(std::move(account), number);
  mode_ = "666";
  name_ = kDefaultName;
  origin_ = Origin::kComposed;
}

void UUAtcmt::UUName(std::string_view name) { name_ = BareName(name); }

bool UUAtcmt::SaveUUFile(int32_t message_id, RecordWriter* store, bool write_file,
                         std::vector<std::string>* written) {
  ClearError();
  const bool has_directory = account_ && !account_->PathAtcmts().empty();
  if (origin_ != Origin::kStored) name_on_server_.clear();
  if (has_directory && (origin_ == Origin::kDecoded || origin_ == Origin::kComposed)) {
    name_on_server_ = JoinPath(account_->PathAtcmts(),
                               StoredFileName(account_->UserId(), message_id, number_, name_));
  }
  if (has_directory && write_file && origin_ == Origin::kDecoded) {
    // With a record to point at it, the file has to be on the disk first.
    if (!WriteWholeFile(name_on_server_, data_, store != nullptr)) {
      name_on_server_.clear();
      SetError(error::UUFileNotWritten);
      return false;
    }
    if (written) written->push_back(name_on_server_);
  }
  return store == nullptr || WriteRecord(*store);
}

bool UUAtcmt::WriteRecord(RecordWriter& store) {
  store.Int32(kBlockMarker);
  if (!store.Ok()) {
    SetError(error::UUMarkerNotWritten);
    return false;
  }
  store.Text(mode_);
  store.Text(name_);
  store.Text(name_on_server_);
  store.Int32(GetLastError());
  store.Text(GetLastErrorDesc());
  if (!store.Ok()) {
    SetError(error::UURecordNotWritten);
    return false;
  }
  return true;
}

bool UUAtcmt::LoadUUFromStore(std::shared_ptr<MailUser> account, int32_t number,
                              RecordReader& store) {
  Reset(std::move(account), number);
  const int32_t marker = store.Int32();
  mode_ = store.Text();
  name_ = store.Text();
  name_on_server_ = store.Text();
  const int32_t stored_error = store.Int32();
  const std::string stored_text = store.Text();
  if (!store.Ok() || marker != kBlockMarker) {
    SetError(error::UURecordNotRead);
    return false;
  }
  origin_ = Origin::kStored;
  SetError(stored_error, stored_text);
  return true;
}

}  // namespace korvane
