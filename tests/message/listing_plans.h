// The statements of a listing as the engine gets them, and what it does with them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "frame/database_url.h"
#include "frame/database_values.h"
#include "frame/driver.h"
#include "frame/schema.h"
#include "message/mail_messages.h"
#include "support/attachment_account.h"

namespace korvane::test {

/// One statement as it was run.
struct Ran {
  std::string text;
  std::vector<Parameter> parameters;
};

/// A driver that tells what it was asked to run.
class TellingDriver final : public Driver {
 public:
  TellingDriver(std::unique_ptr<Driver> below, std::vector<Ran>& told)
      : below_(std::move(below)), told_(told) {}
  Dialect dialect() const override { return below_->dialect(); }
  bool NumbersParameters() const override { return below_->NumbersParameters(); }
  Rows Run(const std::string& text, std::span<const Parameter> parameters) override {
    told_.push_back({text, {parameters.begin(), parameters.end()}});
    return below_->Run(text, parameters);
  }
  void RunScript(const std::string& script) override { below_->RunScript(script); }
  void Begin() override { below_->Begin(); }
  void BeginAllocating() override { below_->BeginAllocating(); }
  void Commit() override { below_->Commit(); }
  void Rollback() override { below_->Rollback(); }

 private:
  std::unique_ptr<Driver> below_;
  std::vector<Ran>& told_;
};

constexpr int kListingUser = 7;
constexpr int kBoxRows = 400;

/// More characters than the index of the recipients holds.
constexpr size_t kLongRecipient = 300;

/// Equal to many others; some differ only behind what an index holds, some only in case there.
inline std::string RecipientOf(int row) {
  const std::string beginning(row % 2 ? kLongRecipient : row % 4 ? 255 : 1, 'd');
  if (row % 2 == 0) return beginning;
  return beginning + static_cast<char>((row % 4 == 1 ? 'a' : 'A') + row / 4 % 5);
}

/// 64 users with 400 rows each in box 1, every tenth of them deleted, and half as many in box 2.
/// Most are equal in every column that a box is ordered by.
inline void FillBoxes(const std::string& url) {
  CreateSchema(url);
  const auto driver = OpenDriver(DatabaseUrl::Parse(url), false);
  const bool real_booleans = driver->dialect() == Dialect::kPostgresql;
  driver->Begin();
  for (int i = 1; i <= kBoxRows; ++i) {
    const std::string deleted =
        i % 10 != 0 ? (real_booleans ? "FALSE" : "0") : (real_booleans ? "TRUE" : "-1");
    driver->Run(
        "INSERT INTO mail (id_mail, id_utente, id_cartella, mittente, destinatario, "
        "oggetto, data, dimensione, cancellata) VALUES (" +
        std::to_string(i) + ",1,1,'m" + std::to_string(i % 3) + "','" + RecipientOf(i) +
        "','o','2002-03-0" + std::to_string(1 + i / 3 % 2) + " 00:00:00'," + std::to_string(i % 4) +
        "," + deleted + ")");
  }
  const auto copy = [&](int rows, int identifiers, const char* users, const char* box) {
    driver->Run(
        "INSERT INTO mail (id_mail, id_utente, id_cartella, mittente, destinatario, "
        "oggetto, data, dimensione, cancellata) SELECT id_mail+" +
        std::to_string(identifiers) + ",id_utente" + users + "," + box +
        ",mittente,destinatario,oggetto,data,dimensione,cancellata FROM mail "
        "WHERE id_mail<=" +
        std::to_string(rows));
  };
  copy(kBoxRows / 2, kBoxRows, "", "2");
  int rows = kBoxRows + kBoxRows / 2;
  for (int users = 1; users < 64; users *= 2, rows *= 2) {
    copy(rows, rows, ("+" + std::to_string(users)).c_str(), "id_cartella");
  }
  // The counts of a site with many more people.
  for (int users = 64; users < 64 << 7; users *= 2) {
    driver->Run("INSERT INTO conteggi_cartelle SELECT id_utente+" + std::to_string(users) +
                ",id_cartella,cancellata,numero FROM conteggi_cartelle WHERE id_utente<=" +
                std::to_string(users));
  }
  driver->Commit();
  if (driver->dialect() == Dialect::kPostgresql) driver->Run("VACUUM ANALYZE");
  if (driver->dialect() == Dialect::kMariadb) driver->Run("ANALYZE TABLE mail");
}

/// Every order and direction.
inline std::vector<MailMessages::ListRequest> EveryOrder() {
  std::vector<MailMessages::ListRequest> orders;
  for (int order = 0; order <= 4; ++order) {
    for (int directions = 0; directions < (order == 0 ? 2 : 4); ++directions) {
      MailMessages::ListRequest request;
      request.order = static_cast<EMailOrder>(order);
      request.direction = static_cast<EMailOrderDirection>(directions & 1);
      request.date_direction = static_cast<EMailOrderDirection>(directions >> 1);
      orders.push_back(request);
    }
  }
  return orders;
}

inline std::shared_ptr<MailUser> ListingAccount(int page_size) {
  auto account = AccountWithAttachmentsIn("", kListingUser);
  account->BoxId(1);
  account->MailListPageSize(page_size);
  return account;
}

/// What the engine says that it does for a statement; true when it reads nobody else's rows.
using Judge = std::function<bool(Driver& driver, const Ran& ran, std::string& plan)>;

/// First, middle and last page of every order: their statements, and what the engine does with
/// them.
inline void NoPlanReadsOtherUsersRows(const std::string& url, const Judge& judge) {
  FillBoxes(url);
  std::vector<Ran> told;
  const auto connection = ConnectionOver(
      std::make_unique<TellingDriver>(OpenDriver(DatabaseUrl::Parse(url), false), told), false);
  const auto explaining = OpenDriver(DatabaseUrl::Parse(url), false);
  const auto account = ListingAccount(25);
  size_t judged = 0;
  for (MailMessages::ListRequest request : EveryOrder()) {
    for (const int page : {1, 7, 15, -1}) {
      request.page = page;
      told.clear();
      MailMessages list;
      ASSERT_TRUE(list.ListBox(account, *connection, request, nullptr, nullptr))
          << list.GetLastErrorDesc();
      EXPECT_EQ(list.Count(), page == -1 ? 360 : page == 15 ? 10 : 25);
      ASSERT_GE(told.size(), 2u);
      for (const Ran& ran : told) {
        // The catalogue is asked about columns once.
        if (ran.text.find("FROM mail") == std::string::npos &&
            ran.text.find("FROM \"mail\"") == std::string::npos &&
            ran.text.find("conteggi") == std::string::npos) {
          continue;
        }
        std::string plan;
        EXPECT_TRUE(judge(*explaining, ran, plan)) << ran.text << "\n" << plan;
        ++judged;
      }
    }
  }
  EXPECT_GT(judged, 150u);
  // What is to be found is found where it is.
  for (const char* without : {"SELECT id_mail FROM mail WHERE id_cartella=1 ORDER BY data",
                              "SELECT COUNT(*) FROM mail WHERE dimensione=1"}) {
    std::string plan;
    EXPECT_FALSE(judge(*explaining, {without, {}}, plan)) << plan;
  }
}

inline std::string TextOf(const Rows& rows) {
  std::string text;
  for (size_t i = 0; i < rows.Count(); ++i) {
    for (size_t column = 0; column < rows.columns.size(); ++column) {
      text += rows.Row(i)[column].value_or("-") + (column + 1 < rows.columns.size() ? "|" : "\n");
    }
  }
  return text;
}

/// A search by user, box and flag in an index, or by identifier; never a walk over the table.
inline bool SqliteJudge(Driver& driver, const Ran& ran, std::string& plan) {
  plan = TextOf(driver.Run("EXPLAIN QUERY PLAN " + ran.text, ran.parameters));
  const bool by_user =
      plan.find("(id_utente=? AND id_cartella=? AND Cancellata=?") != std::string::npos;
  const bool by_key = plan.find("USING INTEGER PRIMARY KEY (rowid=?)") != std::string::npos;
  return (by_user || by_key) && plan.find("SCAN") == std::string::npos &&
         plan.find("TEMP B-TREE") == std::string::npos;
}

/// Every scan has a condition inside its index, on user, box and flag or on the identifier.
inline bool PostgresqlJudge(Driver& driver, const Ran& ran, std::string& plan) {
  plan = TextOf(driver.Run("EXPLAIN " + ran.text, ran.parameters));
  const auto count = [&](std::string_view what) {
    size_t found = 0;
    for (size_t at = plan.find(what); at != std::string::npos; at = plan.find(what, at + 1))
      ++found;
    return found;
  };
  // A scan of a bitmap has its condition in the scan that makes it.
  const size_t scans = count(" Scan") - count("Bitmap Heap Scan");
  const size_t bounded = count(
                             "Index Cond: ((id_utente = 7) AND (id_cartella = 1) AND (cancellata "
                             "= false)") +
                         count("Index Cond: (id_mail = ");
  return scans > 0 && scans == bounded && plan.find("Seq Scan") == std::string::npos;
}

/// By user, box and flag as constants in an index, or by identifiers in the primary key.
inline bool MariadbJudge(Driver& driver, const Ran& ran, std::string& plan) {
  const Rows rows = driver.Run("EXPLAIN " + ran.text, ran.parameters);
  plan = TextOf(rows);
  // id, select_type, table, type, possible_keys, key, key_len, ref, rows, Extra
  if (rows.Count() != 1) return false;
  const Cell* row = rows.Row(0);
  const std::string key = row[5].value_or("");
  const std::string type = row[3].value_or("");
  if (key == "PRIMARY") return type == "range" || type == "const";
  // A range that is longer than user, box and flag is one inside them.
  constexpr int kUserBoxFlag = 4 + 4 + 1;
  const bool inside = type == "ref" ? row[7].value_or("").starts_with("const,const,const")
                                    : type == "range" && std::stoi(*row[6]) > kUserBoxFlag;
  return key.starts_with("mail_per_") && inside;
}

/// By the whole recipients without regard to case, then by date, then by identifier.
inline void ExpectOrderedRecipients(const MailMessages& list,
                                    const MailMessages::ListRequest& request) {
  const bool descending = request.direction == EMailOrderDirection::ORDER_DESC;
  const bool latest_first = request.date_direction == EMailOrderDirection::ORDER_DESC;
  const auto before = [&](const std::shared_ptr<MailMessage>& one,
                          const std::shared_ptr<MailMessage>& other) {
    const std::string left = LowerName(RecipientOf((one->Id() - 1) % 600 + 1));
    const std::string right = LowerName(RecipientOf((other->Id() - 1) % 600 + 1));
    if (left != right) return (left < right) != descending;
    const std::string left_date = one->ReceivedDate();
    const std::string right_date = other->ReceivedDate();
    if (left_date != right_date) return (left_date < right_date) != latest_first;
    return (one->Id() < other->Id()) != descending;
  };
  EXPECT_TRUE(std::ranges::is_sorted(list.Items(), before));
}

/// While somebody else's boxes and the user's other box change all the time, the pages of a box
/// that stays as it is never overlap and never miss a row.
inline void PagesOfAnUnchangedBoxHoldWhileOthersChange(const std::string& url, int sizes) {
  FillBoxes(url);
  std::atomic<bool> stop = false;
  std::atomic<int> changes = 0;
  std::thread others([&] {
    const auto driver = OpenDriver(DatabaseUrl::Parse(url), false);
    const bool booleans = driver->dialect() == Dialect::kPostgresql;
    std::mt19937 random(17);
    for (int id = 1'000'000; !stop; ++id) {
      try {
        driver->Begin();
        // Equal to rows of the box in every column that it is ordered by.
        const int user = random() % 2 ? kListingUser : 1 + static_cast<int>(random() % 6);
        driver->Run(
            "INSERT INTO mail (id_mail,id_utente,id_cartella,mittente,destinatario,oggetto,"
            "data,dimensione,cancellata) VALUES (" +
            std::to_string(random() % 2 ? id : -id) + "," + std::to_string(user) + "," +
            (user == kListingUser ? "2" : "1") + ",'m1','d','o','2002-03-01 00:00:00',1," +
            (booleans ? "FALSE" : "0") + ")");
        driver->Run("DELETE FROM mail WHERE id_mail=" +
                    std::to_string(1 + random() % (kBoxRows * 3 / 2 * 6)) + " AND id_utente<>7");
        driver->Commit();
        ++changes;
      } catch (const DatabaseError& fault) {
        driver->Rollback();
        if (!fault.Retryable()) ADD_FAILURE() << fault.what();
      }
    }
  });
  const auto connection = OpenDatabase(url);
  for (MailMessages::ListRequest request : EveryOrder()) {
    request.page = -1;
    MailMessages whole;
    EXPECT_TRUE(whole.ListBox(ListingAccount(25), *connection, request, nullptr, nullptr));
    std::vector<int32_t> expected;
    for (const auto& message : whole.Items()) expected.push_back(message->Id());
    if (request.order == EMailOrder::ORDER_NAME_TO) ExpectOrderedRecipients(whole, request);
    EXPECT_EQ(std::set<int32_t>(expected.begin(), expected.end()).size(), 360u);
    int tried = 0;
    for (const int size : {45, 7, 25, 119, 1}) {
      if (tried++ == sizes) break;
      std::vector<int32_t> read;
      for (request.page = 1; (request.page - 1) * size < 360; ++request.page) {
        MailMessages page;
        EXPECT_TRUE(page.ListBox(ListingAccount(size), *connection, request, nullptr, nullptr))
            << page.GetLastError();
        for (const auto& message : page.Items()) read.push_back(message->Id());
      }
      EXPECT_EQ(read, expected) << "order " << static_cast<int>(request.order) << ", pages of "
                                << size;
    }
  }
  stop = true;
  others.join();
  EXPECT_GT(changes, 10);
}

}  // namespace korvane::test
