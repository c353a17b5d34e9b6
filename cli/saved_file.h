// Writing files that a mail names: never outside the folder, never over another file.
#pragma once

#include <string>
#include <string_view>

namespace korvane::cli {

/// What a name from a mail can be called in a folder: without separators, control characters and a
/// leading full stop, at most 200 bytes; "attachment" when nothing is left.
std::string SafeFileName(std::string_view name);

/// Makes a new file in the folder, under another name when that one is there ("a (2).txt"). Its
/// path is `path()`. It is removed again unless Close was called. Throws Failure.
class NewFile {
 public:
  NewFile(const std::string& folder, const std::string& name);
  /// Exactly this file; a fault when it is there.
  explicit NewFile(const std::string& path);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  void Write(std::string_view bytes);
  void Close();
  const std::string& path() const { return path_; }

 private:
  [[noreturn]] void Fail();

  std::string path_;
  int descriptor_ = -1;
};

/// Copies a whole file. Throws Failure.
void CopyInto(NewFile& to, const std::string& from);

/// Makes the folder when it is missing. Throws Failure.
void NeedFolder(const std::string& folder);

}  // namespace korvane::cli
