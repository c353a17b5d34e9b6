#include "frame/keyset_recordset.h"

#include <algorithm>
#include <charconv>
#include <initializer_list>

#include "frame/database_values.h"

namespace korvane {

namespace {

using Kind = DatabaseError::Kind;
using namespace recordset;

/// Whole rows are read this many at a time.
constexpr int64_t kRowBlock = 32;
/// Identifiers of a "TOP n" query are read this many at a time: its reader wants one page of it.
constexpr int64_t kKeyWindow = 256;

int64_t KeyOf(const Cell& cell) {
  int64_t key = 0;
  if (cell) std::from_chars(cell->data(), cell->data() + cell->size(), key);
  return key;
}

/// The identifiers of a query's rows, in order, as far as they are needed.
///
/// A query without a bound is taken whole when it is opened: its rows may be changed in their order
/// while they are walked, and a later question would not be about the same list. Of a "TOP n" query
/// its reader wants the last page only, after a jump: there a window around the position is read,
/// and the engine skips the rest inside the index. Where a reader leaves a window that it has read
/// rows of, the whole list is taken, laid so that the row it stands on keeps its position.
class KeyList {
 public:
  KeyList(DatabaseSession& session, KeyQuery query)
      : session_(session), query_(std::move(query)), top_(query_.top) {
    if (!top_) LoadWhole();
  }

  bool Has(int64_t position) {
    if (position < 0) return false;
    if (!Knows(position)) {
      if (position >= *top_) return false;
      if (used_at_) {
        LoadAgain();
      } else {
        // Whether there is a row at all is asked before a jump: then one identifier will do.
        const int64_t rest = *top_ - position;
        const bool jump_follows = position == 0 && rest > kKeyWindow;
        LoadWindow(position, jump_follows ? 1 : std::min(kKeyWindow, rest));
      }
    }
    return position >= first_ && position < End();
  }

  /// The identifier at a position that Has and that a row is now read for.
  int64_t Use(int64_t position) {
    used_at_ = position;
    return keys_[static_cast<size_t>(position - first_)];
  }

  /// The position of the last row, -1 without rows.
  int64_t Last() {
    if (!ended_ || (keys_.empty() && first_ > 0)) {
      const int64_t from = std::max<int64_t>(0, *top_ - kKeyWindow);
      if (used_at_) {
        LoadAgain();
      } else {
        LoadWindow(from, *top_ - from);
        // The jump met nothing: there are fewer rows than the query allows.
        if (keys_.empty() && from > 0) LoadAgain();
      }
    }
    return keys_.empty() ? -1 : End() - 1;
  }

  /// The known positions are [first, End).
  int64_t first() const { return first_; }
  int64_t End() const { return first_ + static_cast<int64_t>(keys_.size()); }

 private:
  bool Knows(int64_t position) const { return position >= first_ && (position < End() || ended_); }

  /// The whole list, laid so that the row that was last read keeps its position.
  void LoadAgain() {
    std::optional<int64_t> key;
    if (used_at_ && *used_at_ >= first_ && *used_at_ < End()) {
      key = keys_[static_cast<size_t>(*used_at_ - first_)];
    }
    LoadWhole();
    if (!key) return;
    const auto found = std::ranges::find(keys_, *key);
    if (found != keys_.end()) first_ = *used_at_ - (found - keys_.begin());
  }

  void LoadWhole() {
    if (top_ && *top_ <= kKeyWindow) return LoadWindow(0, *top_);
    // With a limit one engine compares less of a long text than without.
    keys_ = KeysOf(Part(query_.keys, {}, 0, query_.beginning ? std::nullopt : top_));
    if (top_ && std::ssize(keys_) > *top_) keys_.resize(static_cast<size_t>(*top_));
    first_ = 0;
    ended_ = true;
  }

  /// `count` identifiers from a position on, kKeyWindow at most, of a "TOP n" query.
  void LoadWindow(int64_t from, int64_t count) {
    if (query_.beginning) {
      const Rows rows = Part(query_.beginning->window, {}, from, count);
      keys_ = KeysOf(rows);
      Settle(rows, from);
    } else {
      keys_ = KeysOf(Part(query_.keys, {}, from, count));
    }
    first_ = from;
    ended_ = std::ssize(keys_) < count || from + count >= *top_;
  }

  /// `count` rows of a statement, which may ask for more parameters than it brings, behind `from`.
  Rows Part(const BoundStatement& statement, std::initializer_list<Cell> more, int64_t from,
            std::optional<int64_t> count) {
    std::string text = statement.text;
    std::vector<Parameter> parameters = statement.parameters;
    for (const Cell& cell : more) parameters.push_back({ColumnKind::kText, cell});
    if (count) {
      parameters.push_back(IntegerParameter(*count));
      text += " LIMIT " + session_.translator.Placeholder(parameters.size());
    }
    if (from > 0) {
      parameters.push_back(IntegerParameter(from));
      text += " OFFSET " + session_.translator.Placeholder(parameters.size());
    }
    return session_.driver->Run(text, parameters);
  }

  static std::vector<int64_t> KeysOf(const Rows& rows) {
    std::vector<int64_t> keys;
    keys.reserve(rows.Count());
    for (size_t i = 0; i < rows.Count(); ++i) keys.push_back(KeyOf(rows.Row(i)[0]));
    return keys;
  }

  /// Every run of rows whose texts go on behind their beginnings gets its order. Between two that
  /// are next to each other no other row lies, so only the first of the window can have some of its
  /// own beginning in front of it that the window does not show.
  void Settle(const Rows& rows, int64_t from) {
    const BeginningQuery& query = *query_.beginning;
    const auto beginning = [&](size_t i) -> const Cell& { return rows.Row(i)[1]; };
    for (size_t i = 0; i < keys_.size(); ++i) {
      if (!beginning(i)) continue;
      size_t end = i + 1;
      while (end < keys_.size() && beginning(end)) ++end;
      int64_t before = 0;
      if (i == 0 && from > 0) {
        const auto group = KeysOf(Part(query.group, {beginning(0)}, 0, std::nullopt));
        before = std::ranges::find(group, keys_[0]) - group.begin();
      }
      const Cell& least = beginning(query.descending ? end - 1 : i);
      const Cell& greatest = beginning(query.descending ? i : end - 1);
      const auto settled = KeysOf(Part(query.settled, {least, greatest}, 0, std::nullopt));
      // Fewer are found where somebody removed some meanwhile.
      for (; i < end && before < std::ssize(settled); ++i, ++before) {
        keys_[i] = settled[static_cast<size_t>(before)];
      }
      i = end;
    }
  }

  DatabaseSession& session_;
  KeyQuery query_;
  std::optional<int64_t> top_;
  std::vector<int64_t> keys_;
  int64_t first_ = 0;
  bool ended_ = false;              ///< no row follows the known ones
  std::optional<int64_t> used_at_;  ///< where a row was last read
};

class KeysetRecordset final : public Recordset {
 public:
  KeysetRecordset(std::shared_ptr<DatabaseSession> session, std::string table,
                  std::vector<Column> columns, std::optional<size_t> key)
      : session_(std::move(session)),
        table_(std::move(table)),
        columns_(std::move(columns)),
        key_(key),
        pending_(columns_.size()) {
    for (const Column& column : columns_) {
      select_ += (select_.empty() ? "SELECT " : ",") + Quoted(column.name);
    }
    select_ += " FROM " + table_;
  }

  void Select(KeyQuery query) { keys_.emplace(*session_, std::move(query)); }

  bool Eof() const override {
    CheckOpen();
    return !adding_ && !added_ && !(keys_ && keys_->Has(position_));
  }
  void MoveNext() override { Move(1); }
  void MovePrevious() override { Move(-1); }

  void Move(int64_t rows) override {
    LeaveRow();
    if (!keys_) return;
    if (rows < 0 && !keys_->Has(position_)) position_ = std::min(position_, keys_->Last() + 1);
    backwards_ = rows < 0;
    constexpr int64_t kFarthest = int64_t{1} << 40;
    position_ =
        std::clamp<int64_t>(position_ + std::clamp(rows, -kFarthest, kFarthest), -1, kFarthest);
    if (rows > 0 && !keys_->Has(position_)) position_ = std::max<int64_t>(position_, 0);
  }

  void MoveLast() override {
    LeaveRow();
    if (!keys_) return;
    backwards_ = true;
    position_ = std::max<int64_t>(keys_->Last(), 0);
  }

  Any Field(std::string_view name) const override { return FieldAt(FindColumn(columns_, name)); }
  Any FieldAt(size_t index) const override {
    CheckOpen();
    if (index >= columns_.size()) Fail("no such column");
    const Cell& cell = pending_[index] ? *pending_[index] : adding_ ? kNull : ReadCell(index);
    return CellValue(cell, columns_[index].kind, session_->month_first);
  }

  void SetField(std::string_view name, const Any& value) override {
    CheckOpen();
    const size_t index = FindColumn(columns_, name);
    if (!adding_ && !added_) CurrentRow();
    pending_[index] = StoredCell(value, columns_[index], session_->month_first);
  }

  void AddNew() override {
    LeaveRow();
    adding_ = true;
  }

  void Update() override {
    CheckOpen();
    if (adding_) {
      Insert();
    } else if (HasChanges()) {
      Change();
    }
  }

  void CancelUpdate() override {
    CheckOpen();
    adding_ = false;
    std::ranges::fill(pending_, std::nullopt);
  }

  void Close() override {
    open_ = false;
    keys_.reset();
    block_.clear();
  }
  bool IsOpen() const override { return open_; }

 private:
  using Row = std::vector<Cell>;
  inline static const Cell kNull;

  void CheckOpen() const {
    if (!open_) Fail("it is closed");
  }
  bool HasChanges() const {
    return std::ranges::any_of(pending_, [](const auto& cell) { return cell.has_value(); });
  }
  /// A move with changes that were neither sent nor forgotten would lose them without a word.
  void LeaveRow() {
    CheckOpen();
    if (adding_ || HasChanges()) Fail("the row has changes that were not sent");
    added_.reset();
  }

  Row& CurrentRow() const {
    if (!keys_ || !keys_->Has(position_)) Fail("no current row");
    const auto in_block = [&] {
      return position_ >= block_first_ &&
             position_ < block_first_ + static_cast<int64_t>(block_.size());
    };
    if (!in_block()) ReadBlock();
    auto& row = block_[static_cast<size_t>(position_ - block_first_)];
    if (!row) Fail("the row was deleted since its identifier was read", Kind::kChanged);
    return *row;
  }

  const Cell& ReadCell(size_t index) const {
    if (!added_) return CurrentRow()[index];
    if (!(*sent_)[index]) ReadAdded();
    return (*added_)[index];
  }

  /// A cell that was not sent with a new row has what the table gives it.
  void ReadAdded() const {
    if (!key_ || !(*added_)[*key_]) Fail("the row has no identifier");
    const Parameter key{columns_[*key_].kind, (*added_)[*key_]};
    const std::string condition =
        " WHERE " + Quoted(columns_[*key_].name) + "=" + session_->translator.Placeholder(1);
    Rows rows = session_->driver->Run(select_ + condition, std::span(&key, 1));
    if (rows.Count() != 1) Fail("the new row was deleted", Kind::kChanged);
    added_ = std::move(rows.cells);
    sent_->assign(columns_.size(), true);
  }

  void ReadBlock() const {
    int64_t from = position_;
    int64_t to = std::min(position_ + kRowBlock, keys_->End());
    if (backwards_) {
      from = std::max(position_ - kRowBlock + 1, keys_->first());
      to = position_ + 1;
    }
    block_.assign(static_cast<size_t>(to - from), std::nullopt);
    block_first_ = from;
    std::vector<Parameter> parameters;
    std::vector<std::pair<int64_t, size_t>> places;
    for (int64_t i = from; i < to; ++i) {
      const int64_t key = keys_->Use(i);
      parameters.push_back(IntegerParameter(key));
      places.emplace_back(key, static_cast<size_t>(i - from));
    }
    keys_->Use(position_);
    // Few different lengths, so that few statements are prepared.
    size_t length = 1;
    while (length < parameters.size()) length *= 2;
    parameters.resize(length, parameters.back());
    std::string text = select_ + " WHERE " + Quoted(columns_[*key_].name) + " IN (";
    for (size_t i = 1; i <= length; ++i) {
      text += (i == 1 ? "" : ",") + session_->translator.Placeholder(i);
    }
    Rows rows = session_->driver->Run(text + ")", parameters);
    std::ranges::sort(places);
    for (size_t i = 0; i < rows.Count(); ++i) {
      const auto begin = rows.cells.begin() + static_cast<ptrdiff_t>(i * columns_.size());
      const int64_t key = KeyOf(begin[static_cast<ptrdiff_t>(*key_)]);
      const auto place =
          std::ranges::lower_bound(places, key, {}, &std::pair<int64_t, size_t>::first);
      if (place == places.end() || place->first != key) continue;
      block_[place->second].emplace(
          std::make_move_iterator(begin),
          std::make_move_iterator(begin + static_cast<ptrdiff_t>(columns_.size())));
    }
  }

  void Insert() {
    std::string names;
    std::string values;
    std::vector<Parameter> parameters;
    Row row(columns_.size());
    std::vector<bool> sent(columns_.size());
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (!pending_[i]) continue;
      row[i] = *pending_[i];
      sent[i] = true;
      parameters.push_back({columns_[i].kind, *pending_[i]});
      names += (names.empty() ? "" : ",") + Quoted(columns_[i].name);
      values += (values.empty() ? "" : ",") + session_->translator.Placeholder(parameters.size());
    }
    if (parameters.empty()) Fail("a new row without a value");
    session_->driver->Run("INSERT INTO " + table_ + " (" + names + ") VALUES (" + values + ")",
                          parameters);
    CancelUpdate();
    added_ = std::move(row);
    sent_ = std::move(sent);
  }

  /// Only a row whose changed cells are still as they were read is changed.
  void Change() {
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (pending_[i]) ReadCell(i);
    }
    Row& row = added_ ? *added_ : CurrentRow();
    if (!key_ || !row[*key_]) Fail("the row has no identifier");
    std::string text;
    std::string condition = " WHERE ";
    std::vector<Parameter> parameters;
    std::vector<Parameter> read;
    const auto placeholder = [&](size_t number) {
      return session_->translator.Placeholder(number);
    };
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (!pending_[i]) continue;
      parameters.push_back({columns_[i].kind, *pending_[i]});
      text += (text.empty() ? "UPDATE " + table_ + " SET " : ",") + Quoted(columns_[i].name) + "=" +
              placeholder(parameters.size());
    }
    parameters.push_back({columns_[*key_].kind, row[*key_]});
    condition += Quoted(columns_[*key_].name) + "=" + placeholder(parameters.size());
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (!pending_[i] || i == *key_) continue;
      condition += " AND " + Quoted(columns_[i].name);
      if (!row[i]) {
        condition += " IS NULL";
        continue;
      }
      parameters.push_back({columns_[i].kind, row[i]});
      condition += "=" + placeholder(parameters.size());
    }
    const Rows result = session_->driver->Run(text + condition, parameters);
    if (result.affected == 0) Fail("the row was changed since it was read", Kind::kChanged);
    for (size_t i = 0; i < columns_.size(); ++i) {
      if (pending_[i]) row[i] = std::move(*pending_[i]);
      pending_[i].reset();
    }
  }

  std::shared_ptr<DatabaseSession> session_;
  std::string table_;
  std::vector<Column> columns_;
  std::optional<size_t> key_;
  std::string select_;
  bool open_ = true;

  // Reading is lazy, also where the caller only asks.
  mutable std::optional<KeyList> keys_;
  mutable std::vector<std::optional<Row>> block_;
  mutable int64_t block_first_ = 0;
  int64_t position_ = 0;
  bool backwards_ = false;

  std::vector<std::optional<Cell>> pending_;
  bool adding_ = false;
  mutable std::optional<Row> added_;  ///< the row that was just inserted is the current one
  mutable std::optional<std::vector<bool>> sent_;  ///< its cells that are known
};

}  // namespace

std::shared_ptr<Recordset> MakeKeyset(std::shared_ptr<DatabaseSession> session, std::string table,
                                      std::vector<Column> columns, std::optional<size_t> key,
                                      std::optional<KeyQuery> query) {
  const auto recordset = std::make_shared<KeysetRecordset>(std::move(session), std::move(table),
                                                           std::move(columns), key);
  if (query) recordset->Select(*std::move(query));
  return recordset;
}

}  // namespace korvane
