// A database that knows the answer to whole statement texts and to nothing else, and keeps what it
// was asked: for tests of which statements are run, to the last blank.
#pragma once

#include <algorithm>
#include <cctype>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "frame/database.h"

namespace korvane::test {

using FakeRow = std::map<std::string, Any, std::less<>>;

class FakeRecordset : public Recordset {
 public:
  explicit FakeRecordset(std::vector<FakeRow> rows) : rows_(std::move(rows)) {}
  bool Eof() const override { return at_ >= static_cast<int64_t>(rows_.size()); }
  void MoveNext() override { ++at_; }
  void MovePrevious() override { --at_; }
  void Move(int64_t rows) override { at_ += rows; }
  void MoveLast() override { at_ = static_cast<int64_t>(rows_.size()) - 1; }
  Any Field(std::string_view name) const override {
    for (const auto& [key, value] : rows_.at(static_cast<size_t>(at_))) {
      if (std::equal(key.begin(), key.end(), name.begin(), name.end(), [](char a, char b) {
            return std::tolower(static_cast<unsigned char>(a)) ==
                   std::tolower(static_cast<unsigned char>(b));
          })) {
        return value;
      }
    }
    return nullptr;
  }
  void SetField(std::string_view, const Any&) override { Refuse(); }
  void AddNew() override { Refuse(); }
  void Update() override { Refuse(); }
  void CancelUpdate() override {}
  void Close() override { open_ = false; }
  bool IsOpen() const override { return open_; }

 private:
  static void Refuse() { throw DatabaseError(DatabaseError::Kind::kOther, "read only"); }
  std::vector<FakeRow> rows_;
  int64_t at_ = 0;
  bool open_ = true;
};

class FakeConnection : public Connection {
 public:
  void Answer(const std::string& statement, FakeRow row) {
    answers_[statement].push_back(std::move(row));
  }
  /// From now on every statement fails.
  void Break() { broken_ = true; }
  void AddTable(std::string name) { tables_.push_back(std::move(name)); }
  const std::vector<std::string>& asked() const { return asked_; }

  std::shared_ptr<Recordset> Execute(const std::string& statement) override {
    asked_.push_back(statement);
    if (broken_) throw DatabaseError(DatabaseError::Kind::kConnectionLost, "gone");
    const auto found = answers_.find(statement);
    return std::make_shared<FakeRecordset>(found == answers_.end() ? std::vector<FakeRow>{}
                                                                   : found->second);
  }
  std::shared_ptr<Recordset> Open(const std::string& statement) override {
    return Execute(statement);
  }
  bool HasTable(std::string_view name) override {
    return std::find(tables_.begin(), tables_.end(), name) != tables_.end();
  }

 private:
  std::map<std::string, std::vector<FakeRow>> answers_;
  std::vector<std::string> asked_;
  std::vector<std::string> tables_;
  bool broken_ = false;
};

}  // namespace korvane::test
