// One page of a large box on SQLite, beside fetching the same rows by their identifiers: the
// statements are those of the listing, run through the recordset layer. The database (a box of
// 100,000 messages among 1,000,000) is made once in the system's temporary folder.
#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/database.h"
#include "frame/schema.h"

namespace {

using korvane::Connection;
using korvane::Recordset;

constexpr int kRows = 1'000'000;
constexpr int kBoxRows = 100'000;
constexpr int kPage = 25;
constexpr const char* kColumns[] = {"Data",       "mittente",     "oggetto",
                                    "dimensione", "destinatario", "id_mail"};

struct Raw {
  sqlite3* database = nullptr;
  explicit Raw(const std::string& path) {
    if (sqlite3_open(path.c_str(), &database) != SQLITE_OK) throw std::runtime_error(path);
  }
  Raw(const Raw&) = delete;
  Raw& operator=(const Raw&) = delete;
  ~Raw() { sqlite3_close(database); }
  void Run(const std::string& text) {
    if (sqlite3_exec(database, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(database));
    }
  }
};

/// Filled without the listing's indexes, which are made at the end: that takes a tenth of the time.
void Fill(const std::string& path) {
  std::fprintf(stderr, "making %s: %d rows\n", path.c_str(), kRows);
  const std::string url = "sqlite://" + path;
  korvane::CreateSchema(url);
  Raw raw(path);
  raw.Run("PRAGMA synchronous=OFF; PRAGMA cache_size=-500000");
  for (const char* index :
       {"per_data", "per_mittente", "per_mittente_contro", "per_oggetto", "per_oggetto_contro",
        "per_dimensione", "per_dimensione_contro", "per_destinatario", "per_destinatario_contro",
        "per_id", "doppioni", "non_letti", "posizioni"}) {
    raw.Run("DROP INDEX mail_" + std::string(index));
  }
  raw.Run("BEGIN");
  sqlite3_stmt* insert = nullptr;
  sqlite3_prepare_v2(raw.database,
                     "INSERT INTO mail VALUES (?,?,3,?,0,?,?,datetime(1000000000+?,'unixepoch'),?,"
                     "?,?,?,0,?,?,'5/3/2002 9:5:7',0,-1)",
                     -1, &insert, nullptr);
  std::mt19937 random(1);
  const auto number = [&](int below) {
    return static_cast<int>(random() % static_cast<unsigned>(below));
  };
  const auto person = [&] {
    const std::string n = std::to_string(number(20000));
    return "Person " + n + " <person" + n + "@example.com>";
  };
  const char* const kSubjects[] = {"Re: meeting ", "Invoice ", "[list] patch ", "Your order ",
                                   "Hello "};
  for (int id = 1; id <= kRows; ++id) {
    // Every tenth row is in the box that is listed, so that its rows lie as those of a user among
    // others do.
    const bool box = id % (kRows / kBoxRows) == 0;
    const std::string sender = person();
    const std::string recipient = person();
    const std::string subject = kSubjects[number(5)] + std::to_string(number(30000));
    const std::string identifier =
        "<" + std::to_string(id) + "." + std::to_string(number(1 << 30)) + "@example.com>";
    const std::string received =
        "from mx.example.com (mx.example.com [10.1.2.3]) by mail.example.org with ESMTP id " +
        std::to_string(id) + "; Tue, 5 Mar 2002 09:05:07 +0100";
    sqlite3_bind_int(insert, 1, id);
    sqlite3_bind_int(insert, 2, box ? 7 : 100 + number(100));
    sqlite3_bind_int(insert, 3, box ? 1 : 1 + number(3));
    sqlite3_bind_text(insert, 4, sender.data(), static_cast<int>(sender.size()), SQLITE_STATIC);
    sqlite3_bind_text(insert, 5, recipient.data(), static_cast<int>(recipient.size()),
                      SQLITE_STATIC);
    sqlite3_bind_int(insert, 6, number(100'000'000));
    sqlite3_bind_text(insert, 7, subject.data(), static_cast<int>(subject.size()), SQLITE_STATIC);
    sqlite3_bind_int(insert, 8, 500 + number(100000));
    sqlite3_bind_text(insert, 9, received.data(), static_cast<int>(received.size()), SQLITE_STATIC);
    sqlite3_bind_text(insert, 10, identifier.data(), static_cast<int>(identifier.size()),
                      SQLITE_STATIC);
    sqlite3_bind_int64(insert, 11, int64_t{id} * 2000);
    sqlite3_bind_int(insert, 12, id % 5000);
    if (sqlite3_step(insert) != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(raw.database));
    sqlite3_reset(insert);
  }
  sqlite3_finalize(insert);
  raw.Run("COMMIT");
  korvane::CreateSchema(url);
  raw.Run("PRAGMA wal_checkpoint(TRUNCATE)");
}

const std::string& Path() {
  static const std::string path = [] {
    const char* chosen = std::getenv("KORVANE_BENCH_DATABASE");
    const std::string file =
        chosen ? chosen
               : (std::filesystem::temp_directory_path() / "korvane_listing_bench.db").string();
    if (!std::filesystem::exists(file)) {
      std::filesystem::remove(file + ".part");
      Fill(file + ".part");
      std::filesystem::rename(file + ".part", file);
    }
    return file;
  }();
  return path;
}

Connection& Database() {
  static const auto connection = korvane::OpenDatabase("sqlite://" + Path());
  return *connection;
}

/// The count and the page, as the listing of a box asks for them, greatest first; the date the
/// other way round when `against`. The rows' identifiers.
std::vector<int64_t> ListPage(Connection& connection, int order, int page, bool against) {
  const auto count = connection.Execute(
      "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1AND Cancellata=0");
  const int64_t total = *count->Field("NumMail").ToInt64();
  const int64_t first = int64_t{page - 1} * kPage + 1;
  const int64_t last = std::min<int64_t>(first + kPage - 1, total);
  const bool reversed = first + last > total;
  const int64_t from = reversed ? total - last + 1 : first;
  const int64_t to = reversed ? total - first + 1 : last;
  const std::string column = kColumns[order];
  std::string statement =
      "SELECT TOP " + std::to_string(to) +
      " * FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0 ORDER BY " + column +
      (reversed ? " ASC" : " DESC");
  if (order >= 1 && order <= 4) statement += reversed == against ? ", Data DESC" : ", Data ASC";
  const auto rows = connection.Open(statement);
  std::vector<int64_t> identifiers;
  const auto take = [&] {
    for (const char* name : {"Letto", "mittente", "destinatario", "data", "id_server", "oggetto",
                             "dimensione", "allegati"}) {
      benchmark::DoNotOptimize(rows->Field(name));
    }
    identifiers.push_back(*rows->Field("id_mail").ToInt64());
  };
  if (reversed) {
    rows->MoveLast();
    for (int64_t i = from; i <= to; ++i, rows->MovePrevious()) take();
  } else {
    if (!rows->Eof()) rows->Move(from - 1);
    for (; !rows->Eof(); rows->MoveNext()) take();
  }
  return identifiers;
}

int PageOf(const benchmark::State& state) { return state.range(1) ? kBoxRows / kPage / 2 : 1; }

std::string Label(const benchmark::State& state) {
  return std::string(kColumns[state.range(0)]) +
         (state.range(1) ? ", middle page" : ", first page");
}

void Page(benchmark::State& state) {
  Connection& connection = Database();
  for (auto _ : state) {
    const auto rows = ListPage(connection, static_cast<int>(state.range(0)), PageOf(state), false);
    if (rows.size() != kPage) state.SkipWithError("not a page");
  }
  state.SetLabel(Label(state));
}

void PageDateAgainst(benchmark::State& state) {
  Connection& connection = Database();
  for (auto _ : state) {
    const auto rows = ListPage(connection, static_cast<int>(state.range(0)), PageOf(state), true);
    if (rows.size() != kPage) state.SkipWithError("not a page");
  }
  state.SetLabel(Label(state));
}

/// The same rows with a statement prepared once in the plain client.
void RowsByKeyInThePlainClient(benchmark::State& state) {
  const auto rows = ListPage(Database(), static_cast<int>(state.range(0)), PageOf(state), false);
  Raw raw(Path());
  raw.Run("PRAGMA cache_size=-16384");
  sqlite3_stmt* select = nullptr;
  sqlite3_prepare_v2(raw.database, "SELECT * FROM mail WHERE id_mail=?", -1, &select, nullptr);
  for (auto _ : state) {
    for (const int64_t id : rows) {
      sqlite3_bind_int64(select, 1, id);
      if (sqlite3_step(select) != SQLITE_ROW) state.SkipWithError("no row");
      for (int i = 0; i < sqlite3_column_count(select); ++i) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(select, i));
        benchmark::DoNotOptimize(std::string(text ? text : ""));
      }
      sqlite3_reset(select);
    }
  }
  sqlite3_finalize(select);
  state.SetLabel(Label(state));
}

/// The same rows through the recordset layer, as a message's row is opened.
void RowsByKey(benchmark::State& state) {
  Connection& connection = Database();
  const auto rows = ListPage(connection, static_cast<int>(state.range(0)), PageOf(state), false);
  for (auto _ : state) {
    for (const int64_t id : rows) {
      const auto row = connection.Open("SELECT * FROM mail WHERE id_mail=" + std::to_string(id) +
                                       " AND id_utente=7");
      benchmark::DoNotOptimize(row->Field("mittente"));
    }
  }
  state.SetLabel(Label(state));
}

void Orders(benchmark::internal::Benchmark* bench) {
  bench->ArgsProduct({{0, 1, 2, 3, 4, 5}, {0, 1}})->Unit(benchmark::kMicrosecond);
}

BENCHMARK(Page)->Apply(Orders);
BENCHMARK(PageDateAgainst)->ArgsProduct({{1, 2, 3, 4}, {0, 1}})->Unit(benchmark::kMicrosecond);
BENCHMARK(RowsByKeyInThePlainClient)->Apply(Orders);
BENCHMARK(RowsByKey)->Apply(Orders);

}  // namespace

BENCHMARK_MAIN();
