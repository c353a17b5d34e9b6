// Reading and writing the fields of message records: little-endian integers and counted strings.
// The layout of a record is docs/message_file.md.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "files.h"

namespace korvane {

/// Writes to a file; once anything failed, Ok is false and stays so.
class RecordWriter {
 public:
  explicit RecordWriter(BinaryFile& file) : file_(file) {}
  void Int32(int32_t value);
  void Bool16(bool value);  ///< -1 or 0
  void Text(std::string_view value);
  bool Ok() const { return ok_; }

 private:
  BinaryFile& file_;
  bool ok_ = true;
};

/// Reads from a file between its position and a limit. Every count and length is checked against
/// what remains before anything is allocated; once anything failed, Ok is false, numbers are 0 and
/// texts empty.
class RecordReader {
 public:
  /// Reads up to the end of the file.
  explicit RecordReader(BinaryFile& file);
  /// Of a file that is known to be that long.
  RecordReader(BinaryFile& file, int64_t file_length);
  int32_t Int32();
  bool Bool16();
  /// A counted text as UTF-8: what an older installation wrote in the code page reads the same.
  std::string Text();
  /// A counted text's bytes as they stand.
  std::string Bytes();
  /// Passes over a counted text without taking it into memory.
  void SkipText();
  int64_t Remaining() const { return remaining_; }
  bool Ok() const { return ok_; }
  void Fail() { ok_ = false; }

 private:
  bool Take(char* buffer, int64_t size);

  BinaryFile& file_;
  int64_t remaining_ = 0;
  bool ok_ = true;
};

}  // namespace korvane
