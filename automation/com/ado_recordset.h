// Rows as ADO's Recordset gives them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "frame/database.h"
#include "late_bound.h"

namespace korvane::com {

class AdoRecordset final : public Recordset {
 public:
  /// `rows` may be none: what a statement without rows leaves behind.
  AdoRecordset(LateBound rows, bool month_first)
      : rows_(std::move(rows)), month_first_(month_first) {}
  AdoRecordset(const AdoRecordset&) = delete;
  AdoRecordset& operator=(const AdoRecordset&) = delete;
  ~AdoRecordset() override;

  bool Eof() const override;
  void MoveNext() override;
  void MovePrevious() override;
  void Move(int64_t rows) override;
  void MoveLast() override;
  Any Field(std::string_view name) const override;
  Any FieldAt(size_t column) const override;
  void SetField(std::string_view name, const Any& value) override;
  void AddNew() override;
  void Update() override;
  void CancelUpdate() override;
  void Close() override;
  bool IsOpen() const override { return open_; }

 private:
  void Do(std::string_view name);
  LateBound Cell(VARIANT& key) const;

  LateBound rows_;
  const bool month_first_;
  bool open_ = true;
  bool changing_ = false;
  std::optional<int64_t> place_ = 0;  ///< counted from the first row; none behind MoveLast
};

}  // namespace korvane::com
