// UUAtcmt: a file that was uuencoded in a text body, or the holder of the name of a file attached
// to a message being composed. What becomes of the block in the text that is shown is the message's
// affair.
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

/// Finds the blocks of one text, one after the other. Only the first search looks at the very start
/// of the text, where a block may begin without a line break before it. An end marker once found is
/// remembered, so that looking through a text is linear.
class UUBlockFinder {
 public:
  explicit UUBlockFinder(std::string_view text) : text_(text) {}
  bool Next(UUBlock& block);

 private:
  bool NextBegin(size_t& begin);
  size_t EndMarkerFrom(size_t from);

  std::string_view text_;
  size_t position_ = 0;
  bool start_examined_ = false;
  size_t end_marker_ = 0;  ///< the last end marker found, npos when there is none further on
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
  /// null. Errors 1036 to 1038. The path of a file that was written is appended to `written`.
  /// Only what InitFromText decoded is ever written to a file; a block read back from the store
  /// keeps its name and its file.
  bool SaveUUFile(int32_t message_id, RecordWriter* store, bool write_file,
                  std::vector<std::string>* written = nullptr);
  /// Reads the block. Error 1039.
  bool LoadUUFromStore(std::shared_ptr<MailUser> account, int32_t number, RecordReader& store);

 private:
  enum class Origin {
    kNone,
    kDecoded,   ///< data_ is the sender's content
    kComposed,  ///< the page puts the content where the name says
    kStored,    ///< read back: the name and the file are final
  };

  void Reset(std::shared_ptr<MailUser> account, int32_t number);
  bool WriteRecord(RecordWriter& store);

  std::shared_ptr<MailUser> account_;
  int32_t number_ = 0;
  std::string mode_;
  std::string name_;
  std::string name_on_server_;
  std::string data_;
  Origin origin_ = Origin::kNone;
};

}  // namespace korvane
