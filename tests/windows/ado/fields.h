// "Fields" of a recordset, and one "Field".
#pragma once

#include "recordset.h"

namespace korvane::test {

class AdoField : public LateBound {
 public:
  AdoField(AdoRecordset* rows, size_t column);

 private:
  Variant Do(DISPID member, Use use, const Arguments& arguments) override;
  ~AdoField() override;

  AdoRecordset* rows_;
  size_t column_;
};

class AdoFields : public LateBound {
 public:
  explicit AdoFields(AdoRecordset* rows);

 private:
  Variant Do(DISPID member, Use use, const Arguments& arguments) override;
  ~AdoFields() override;

  AdoRecordset* rows_;
};

}  // namespace korvane::test
