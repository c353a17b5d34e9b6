#include "frame/record_io.h"

#include <array>
#include <limits>

#include "frame/code_page.h"

namespace korvane {

void RecordWriter::Int32(int32_t value) {
  const auto bits = static_cast<uint32_t>(value);
  const std::array<char, 4> bytes = {static_cast<char>(bits), static_cast<char>(bits >> 8),
                                     static_cast<char>(bits >> 16), static_cast<char>(bits >> 24)};
  if (ok_) ok_ = file_.Write({bytes.data(), bytes.size()});
}

void RecordWriter::Bool16(bool value) {
  if (ok_) ok_ = file_.Write(value ? std::string_view("\xFF\xFF", 2) : std::string_view("\0\0", 2));
}

void RecordWriter::Text(std::string_view value) {
  if (value.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) ok_ = false;
  Int32(static_cast<int32_t>(value.size()));
  if (ok_) ok_ = file_.Write(value);
}

RecordReader::RecordReader(BinaryFile& file) : RecordReader(file, file.Length()) {}

RecordReader::RecordReader(BinaryFile& file, int64_t file_length) : file_(file) {
  const int64_t position = file.Position();
  if (file_length < 0 || position < 1 || position > file_length + 1) {
    ok_ = false;
  } else {
    remaining_ = file_length + 1 - position;
  }
}

bool RecordReader::Take(char* buffer, int64_t size) {
  if (!ok_ || size > remaining_ || !file_.Read(buffer, static_cast<size_t>(size))) {
    ok_ = false;
    return false;
  }
  remaining_ -= size;
  return true;
}

int32_t RecordReader::Int32() {
  std::array<unsigned char, 4> bytes{};
  if (!Take(reinterpret_cast<char*>(bytes.data()), 4)) return 0;
  return static_cast<int32_t>(uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 |
                              uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24);
}

bool RecordReader::Bool16() {
  std::array<char, 2> bytes{};
  return Take(bytes.data(), 2) && (bytes[0] != 0 || bytes[1] != 0);
}

std::string RecordReader::Bytes() {
  const int32_t size = Int32();
  if (size < 0 || size > remaining_) ok_ = false;
  if (!ok_ || size == 0) return {};
  std::string bytes(static_cast<size_t>(size), '\0');
  if (!Take(bytes.data(), size)) return {};
  return bytes;
}

void RecordReader::SkipText() {
  const int32_t size = Int32();
  if (size < 0 || size > remaining_) ok_ = false;
  if (!ok_) return;
  ok_ = file_.Seek(file_.Position() + size);
  remaining_ -= size;
}

std::string RecordReader::Text() { return ToUtf8(Bytes()); }

}  // namespace korvane
