// "ADODB.Recordset" of the tests: all rows are read when it opens. It can be changed when its rows
// come from one table that has a key of one column.
#pragma once

#include <map>
#include <memory>

#include "connection.h"

namespace korvane::test {

class AdoRecordset : public LateBound {
 public:
  AdoRecordset();
  /// With the rows of a statement that a connection ran: it can only be read, forwards.
  AdoRecordset(std::shared_ptr<OdbcSession> session, OdbcRows rows);

  /// The place of a column by name, in any case, or by its number from 0.
  size_t ColumnOf(const Variant& key) const;
  const OdbcColumn& ColumnAt(size_t column) const { return rows_.columns[column]; }
  size_t columns() const { return rows_.columns.size(); }
  Variant Value(size_t column) const;
  void SetValue(size_t column, const Variant& value);

 private:
  Variant Do(DISPID member, Use use, const Arguments& arguments) override;
  ~AdoRecordset() override;

  void Open(const Arguments& arguments);
  void Close();
  void AddNew();
  void Update();
  void Insert();
  void Change();
  void CancelUpdate();
  void Move(long long to);
  void NeedOpen() const;
  void NeedRow() const;
  void NeedClosed() const;
  void NeedChangeable() const;
  bool HasRow() const { return row_ >= 0 && row_ < Count(); }
  long long Count() const { return static_cast<long long>(rows_.Count()); }
  WideCell& CellAt(size_t column) {
    return rows_.cells[static_cast<size_t>(row_) * columns() + column];
  }
  std::wstring Quoted(const std::wstring& name) const { return L"\"" + name + L"\""; }
  OdbcParameter Bound(size_t column, const WideCell& cell) const;
  Variant Fields(Use use, const Arguments& arguments);

  std::shared_ptr<OdbcSession> session_;
  IDispatch* connection_ = nullptr;
  std::wstring source_;
  std::wstring table_;
  std::wstring key_;
  OdbcRows rows_;
  long long row_ = -1;  ///< -1 is in front of the first, Count() behind the last
  std::map<size_t, WideCell> changes_;
  bool adding_ = false;
  bool open_ = false;
  LONG cursor_location_ = 2;
  LONG cursor_type_ = 0;
  LONG lock_type_ = 1;
};

}  // namespace korvane::test
