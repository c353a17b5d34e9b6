// A connection that passes everything on to another one and throws where a test says.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "frame/database.h"

namespace korvane::test {

class FaultyConnection : public Connection {
 public:
  explicit FaultyConnection(std::shared_ptr<Connection> inner) : inner_(std::move(inner)) {}

  // Each may throw; the fault then takes the place of what was asked for.
  std::function<void(const std::string& statement)> on_statement;
  std::function<void(const std::string& statement, Recordset& row)> on_update;
  std::function<void()> on_begin;
  std::function<void()> on_commit;
  /// Called after a commit was made.
  std::function<void()> after_commit;
  /// Called after a transaction was rolled back.
  std::function<void()> after_rollback;
  bool transactions = true;
  bool reopens = false;

  std::shared_ptr<Recordset> Execute(const std::string& statement) override {
    if (on_statement) on_statement(statement);
    return inner_->Execute(statement);
  }
  std::shared_ptr<Recordset> Open(const std::string& statement) override {
    if (on_statement) on_statement(statement);
    return std::make_shared<Rows>(*this, statement, inner_->Open(statement));
  }
  void Begin() override {
    if (on_begin) on_begin();
    if (transactions) inner_->Begin();
  }
  void BeginAllocating() override {
    if (on_begin) on_begin();
    if (transactions) inner_->BeginAllocating();
  }
  void Commit() override {
    if (on_commit) on_commit();
    if (transactions) inner_->Commit();
    if (after_commit) after_commit();
  }
  void Rollback() override {
    if (transactions) inner_->Rollback();
    if (after_rollback) after_rollback();
  }
  bool HasTransactions() const override { return transactions; }
  bool Reopens() const override { return reopens; }
  bool HasTable(std::string_view name) override { return inner_->HasTable(name); }

 private:
  class Rows : public Recordset {
   public:
    Rows(FaultyConnection& owner, std::string statement, std::shared_ptr<Recordset> inner)
        : owner_(owner), statement_(std::move(statement)), inner_(std::move(inner)) {}
    bool Eof() const override { return inner_->Eof(); }
    void MoveNext() override { inner_->MoveNext(); }
    void MovePrevious() override { inner_->MovePrevious(); }
    void Move(int64_t rows) override { inner_->Move(rows); }
    void MoveLast() override { inner_->MoveLast(); }
    Any Field(std::string_view name) const override { return inner_->Field(name); }
    Any FieldAt(size_t column) const override { return inner_->FieldAt(column); }
    void SetField(std::string_view name, const Any& value) override {
      inner_->SetField(name, value);
    }
    void AddNew() override { inner_->AddNew(); }
    void Update() override {
      if (owner_.on_update) owner_.on_update(statement_, *inner_);
      inner_->Update();
    }
    void CancelUpdate() override { inner_->CancelUpdate(); }
    void Close() override { inner_->Close(); }
    bool IsOpen() const override { return inner_->IsOpen(); }

   private:
    FaultyConnection& owner_;
    std::string statement_;
    std::shared_ptr<Recordset> inner_;
  };

  std::shared_ptr<Connection> inner_;
};

}  // namespace korvane::test
