// The page's database connection: any object that answers, called by name, to ADO's Connection.
//
// Of the connection only Execute is used. A recordset that is changed is an "ADODB.Recordset" with
// cursor location 2, cursor type 2 and lock type 3, opened on it; of that, Open, EOF, MoveNext,
// MovePrevious, Move, MoveLast, Fields(name).Value, AddNew, Update, CancelUpdate and Close. The
// statements reach it as they are.
//
// It has no transactions. ADO's own would be further members, which an object of a page's making
// need not have, and a page may have one open on its connection already; a BEGIN through Execute is
// another text on every engine. So every Update stands by itself, as the layers above expect of a
// connection that says so: records are on the disk before the row that points at them, a new
// identifier that is taken meanwhile is tried again, and a compaction writes its plan down first.
//
// Dates cross as automation's dates, which have no order; their texts are made and read here. Who
// asks for the order gets that of the user's settings, as every automation client would; whoever
// then works with the connection says in which order he does.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

#include "frame/database.h"
#include "late_bound.h"

namespace korvane::com {

class AdoConnection final : public Connection {
 public:
  explicit AdoConnection(Reference<IDispatch> connection);

  std::shared_ptr<Recordset> Execute(const std::string& statement) override;
  std::shared_ptr<Recordset> Open(const std::string& statement) override;
  /// Asked once by a query for no row. An engine may give up a transaction of the page over the
  /// answer no; a page that has one open gives its tables all.
  bool HasTable(std::string_view name) override;
  void MonthFirst(bool month_first) override { month_first_ = month_first; }

 private:
  LateBound connection_;
  bool month_first_;
  std::unordered_map<std::string, bool> tables_;
};

}  // namespace korvane::com
