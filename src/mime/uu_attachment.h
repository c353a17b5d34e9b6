// UUAtcmt: a file that was uuencoded in a text body, or the holder of the name of a file attached to
// a message being composed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "../frame/any.h"
#include "../frame/error_state.h"

namespace korvane {

class MailUser;
class RecordWriter;
class RecordReader;

/// Where a uuencoded block lies in a text: from its "begin " to the last character of its "end".
struct UUBlock {
  size_t begin;
  size_t end;  ///< one past the last character of "end"
};

/// Finds the next block at or after `position`. `at_start` is true for the first search of a text:
/// only then a block may begin without a line break before it. It remembers that there is no further
/// end marker, so that looking through a text is linear.
class UUBlockFinder {
 public:
  explicit UUBlockFinder(std::string_view text) : text_(text) {}
  bool Next(UUBlock& block);

 private:
  std::string_view text_;
  size_t position_ = 0;
  bool start_examined_ = false;
  size_t end_marker_ = 0;  ///< the last end marker found, or npos when there is none further on
  bool end_marker_known_ = false;
};

class UUAtcmt : public Object, public ErrorState {
 public:
  // Scripts see the error pair only; everything here is internal to the library.

  /// Reads a found block. Errors 1040 to 1042.
  bool InitFromText(std::shared_ptr<MailUser> account, int32_t number, std::string_view block);
  /// A new attachment of a message being composed: mode "666", name "Stream.dat".
  void InitForNew(std::shared_ptr<MailUser> account, int32_t number);

  int32_t UUNumber() const { return number_; }
  const std::string& UUMode() const { return mode_; }
  const std::string& UUName() const { return name_; }
  void UUName(std::string_view name);  ///< reduced to a bare name
  /// Full path of the stored file, directory included; "" when it could not be written.
  const std::string& UUNameOnServer() const { return name_on_server_; }
  const std::string& UUData() const { return data_; }

  /// Names the file, writes it (with `write_file`), and writes the block to `store` when it is not
  /// null. Errors 1036 to 1038.
  bool SaveUUFile(int32_t message_id, RecordWriter* store, bool write_file,
                  std::vector<std::string>* written = nullptr);
  /// Reads the block. Error 1039.
  bool LoadUUFromStore(std::shared_ptr<MailUser> account, int32_t number, RecordReader& store);

 private:
  std::shared_ptr<MailUser> account_;
  int32_t number_ = 0;
  std::string mode_;
  std::string name_;
  std::string name_on_server_;
  std::string data_;
};

}  // namespace korvane
