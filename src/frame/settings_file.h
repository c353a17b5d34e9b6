// The settings file: a tree of keys and values in the registry editor's text format ("Windows
// Registry Editor Version 5.00"), in UTF-8 or in UTF-16 with its mark. The file is a script, as the
// editor takes it: a later value wins, "[-key]" deletes a key, "\"name\"=-" a value.
//
// Lines that are not understood are passed over when reading and kept as they are when writing.
// This class works on a text in memory; finding, locking and replacing the file is Registry's.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

class SettingsFile {
 public:
  /// The registry's value types, as far as they matter here.
  enum Type : uint32_t { kText = 1, kExpandText = 2, kBinary = 3, kNumber = 4, kMultiText = 7 };

  struct Value {
    uint32_t type = kText;
    /// What the registry hands out: a text's UTF-8 bytes with the NUL that ends it, a number's four
    /// bytes, and the bytes of everything else.
    std::string data;
  };

  /// Takes a whole file over. Nothing is an error: what is not understood is no setting.
  explicit SettingsFile(std::string_view bytes = {});

  /// The whole file again, in the encoding and with the line ends that it had.
  std::string Bytes() const;

  // Keys are full paths with the root's name, in any case: "HKEY_LOCAL_MACHINE\SOFTWARE\…".

  /// True when the key or one below it is there.
  bool HasKey(std::string_view key) const;
  bool HasSubKeys(std::string_view key) const;
  const Value* Find(std::string_view key, std::string_view name) const;

  void Set(std::string_view key, std::string_view name, const Value& value);
  bool Delete(std::string_view key, std::string_view name);
  void CreateKey(std::string_view key);
  void DeleteKey(std::string_view key);

  static Value Text(std::string_view text);
  static Value Number(int32_t number);

 private:
  enum class Encoding { kUtf8, kUtf8WithMark, kUtf16Little, kUtf16Big };
  /// One setting, section head, or run of text between them, with the line ends that close it.
  struct Item {
    enum class Kind { kOther, kKey, kKeyDeleted, kValue, kValueDeleted } kind = Kind::kOther;
    std::string raw;
    std::string name;  ///< folded: of the key, or of the value
    Value value;
  };
  using Values = std::map<std::string, Value, std::less<>>;

  void Parse(std::string_view text);
  Item ParseItem(std::string_view text, size_t& position) const;
  bool ParseValue(std::string_view text, size_t& position, Item& item) const;
  bool ParseHex(std::string_view text, size_t& position, Value& value) const;
  /// Runs the items and makes the tree of them.
  void Apply();
  void Append(std::string_view text);
  std::string ValueLine(std::string_view name, const Value& value) const;

  Encoding encoding_ = Encoding::kUtf8;
  bool code_page_format_ = false;  ///< "REGEDIT4": byte texts are not UTF-16
  std::string line_end_ = "\r\n";
  std::vector<Item> items_;
  std::map<std::string, Values, std::less<>> keys_;  ///< by folded path
};

}  // namespace korvane
