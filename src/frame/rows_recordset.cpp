// The rows of any statement, read at once and not changeable.
#include <algorithm>

#include "frame/database_values.h"
#include "frame/keyset_recordset.h"

namespace korvane {

namespace {

using namespace recordset;

class RowsRecordset final : public Recordset {
 public:
  RowsRecordset(bool month_first, Rows rows) : month_first_(month_first), rows_(std::move(rows)) {}

  bool Eof() const override {
    CheckOpen();
    return position_ < 0 || position_ >= Count();
  }
  void MoveNext() override { Move(1); }
  void MovePrevious() override { Move(-1); }
  void Move(int64_t rows) override {
    CheckOpen();
    const int64_t count = Count();
    position_ = std::clamp<int64_t>(position_ + std::clamp(rows, -count - 1, count + 1), -1, count);
  }
  void MoveLast() override {
    CheckOpen();
    position_ = std::max<int64_t>(Count() - 1, 0);
  }
  Any Field(std::string_view name) const override {
    return FieldAt(FindColumn(rows_.columns, name));
  }
  Any FieldAt(size_t index) const override {
    if (index >= rows_.columns.size()) Fail("no such column");
    if (Eof()) Fail("no current row");
    return CellValue(rows_.Row(static_cast<size_t>(position_))[index], rows_.columns[index].kind,
                     month_first_);
  }
  void SetField(std::string_view, const Any&) override { Refuse(); }
  void AddNew() override { Refuse(); }
  void Update() override { Refuse(); }
  void CancelUpdate() override { CheckOpen(); }
  void Close() override {
    open_ = false;
    rows_ = {};
  }
  bool IsOpen() const override { return open_; }

 private:
  int64_t Count() const { return static_cast<int64_t>(rows_.Count()); }
  void CheckOpen() const {
    if (!open_) Fail("it is closed");
  }
  [[noreturn]] void Refuse() const {
    CheckOpen();
    Fail("its rows are read-only");
  }

  bool month_first_;
  Rows rows_;
  int64_t position_ = 0;
  bool open_ = true;
};

}  // namespace

std::shared_ptr<Recordset> HoldRows(const std::shared_ptr<DatabaseSession>& session, Rows rows) {
  return std::make_shared<RowsRecordset>(session->month_first, std::move(rows));
}

}  // namespace korvane
