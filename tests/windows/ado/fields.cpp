#include "fields.h"

#include "ado_errors.h"

namespace korvane::test {

namespace {

enum : DISPID { kValue = DISPID_VALUE, kName = 1, kType, kItem = DISPID_VALUE, kCount = 1 };

const LateBound::Member kFieldMembers[] = {
    {L"Value", kValue, {}}, {L"Name", kName, {}}, {L"Type", kType, {}}};
const LateBound::Member kFieldsMembers[] = {{L"Item", kItem, {L"Index"}}, {L"Count", kCount, {}}};

}  // namespace

AdoField::AdoField(AdoRecordset* rows, size_t column)
    : LateBound(L"ADODB.Field", kFieldMembers), rows_(rows), column_(column) {
  rows_->AddRef();
}

AdoField::~AdoField() { rows_->Release(); }

Variant AdoField::Do(DISPID member, Use use, const Arguments& arguments) {
  switch (member) {
    case kValue:
      if (use != Use::kPut) return rows_->Value(column_);
      rows_->SetValue(column_, arguments.Assigned());
      return {};
    case kName:
      return Variant::Text(rows_->ColumnAt(column_).name);
    case kType:
      return Variant::Number(rows_->ColumnAt(column_).type);
    default:
      throw Fault{DISP_E_MEMBERNOTFOUND, L""};
  }
}

AdoFields::AdoFields(AdoRecordset* rows) : LateBound(L"ADODB.Fields", kFieldsMembers), rows_(rows) {
  rows_->AddRef();
}

AdoFields::~AdoFields() { rows_->Release(); }

Variant AdoFields::Do(DISPID member, Use use, const Arguments& arguments) {
  switch (member) {
    case kItem: {
      const size_t column = rows_->ColumnOf(arguments.at(0));
      // Fields("x") = 5 assigns to the field's default property.
      if (use == Use::kPut) {
        rows_->SetValue(column, arguments.Assigned());
        return {};
      }
      return Variant::Object(new AdoField(rows_, column));
    }
    case kCount:
      return Variant::Number(static_cast<LONG>(rows_->columns()));
    default:
      throw Fault{DISP_E_MEMBERNOTFOUND, L""};
  }
}

}  // namespace korvane::test
