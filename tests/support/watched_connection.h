// A connection that notes the statements that pass through it and can be told to fail: at a
// statement, at writing a column, at an update or at a commit.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "frame/database.h"

namespace korvane::test {

class WatchedConnection : public Connection {
 public:
  explicit WatchedConnection(std::shared_ptr<Connection> inner) : inner_(std::move(inner)) {}

  /// Called before each step with what it is: "execute <statement>", "open <statement>", "set
  /// <column>", "get <column>", "update", "commit". It throws to make the step fail.
  std::function<void(const std::string& step)> before = [](const std::string&) {};
  std::vector<std::string> statements;

  /// Makes the first `times` steps that begin with `prefix` fail.
  void FailAt(std::string prefix, DatabaseError::Kind kind, int times = 1 << 30) {
    before = [prefix = std::move(prefix), kind, times](const std::string& step) mutable {
      if (step.starts_with(prefix) && times-- > 0) throw DatabaseError(kind, "made to fail");
    };
  }

  std::shared_ptr<Recordset> Execute(const std::string& statement) override {
    statements.push_back(statement);
    before("execute " + statement);
    return inner_->Execute(statement);
  }
  std::shared_ptr<Recordset> Open(const std::string& statement) override {
    statements.push_back(statement);
    before("open " + statement);
    return std::make_shared<Rows>(*this, inner_->Open(statement));
  }
  void Begin() override { inner_->Begin(); }
  void BeginAllocating() override { inner_->BeginAllocating(); }
  void Commit() override {
    before("commit");
    inner_->Commit();
  }
  void Rollback() override { inner_->Rollback(); }
  bool HasTransactions() const override { return inner_->HasTransactions(); }
  bool HasTable(std::string_view name) override { return inner_->HasTable(name); }

 private:
  class Rows : public Recordset {
   public:
    Rows(WatchedConnection& owner, std::shared_ptr<Recordset> inner)
        : owner_(owner), inner_(std::move(inner)) {}
    bool Eof() const override { return inner_->Eof(); }
    void MoveNext() override { inner_->MoveNext(); }
    void MovePrevious() override { inner_->MovePrevious(); }
    void Move(int64_t rows) override { inner_->Move(rows); }
    void MoveLast() override { inner_->MoveLast(); }
    Any Field(std::string_view name) const override {
      owner_.before("get " + std::string(name));
      return inner_->Field(name);
    }
    void SetField(std::string_view name, const Any& value) override {
      owner_.before("set " + std::string(name));
      inner_->SetField(name, value);
    }
    void AddNew() override { inner_->AddNew(); }
    void Update() override {
      owner_.before("update");
      inner_->Update();
    }
    void CancelUpdate() override { inner_->CancelUpdate(); }
    void Close() override { inner_->Close(); }
    bool IsOpen() const override { return inner_->IsOpen(); }

   private:
    WatchedConnection& owner_;
    std::shared_ptr<Recordset> inner_;
  };

  std::shared_ptr<Connection> inner_;
};

}  // namespace korvane::test
