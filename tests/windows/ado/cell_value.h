// Cells, which are texts here, as ADO shows them to scripts; and back.
#pragma once

#include "odbc_session.h"
#include "support/variant.h"

namespace korvane::test {

/// Dates come as dates. Those before the year 100, which a date variant cannot hold, come as text
/// in the order of the user's locale.
Variant ValueOf(const WideCell& cell, short type);

/// A text for a date column is read in the order of the user's locale. Throws a Fault where the
/// value is none of the column's.
WideCell CellOf(const Variant& value, short type, Dialect dialect);

}  // namespace korvane::test
