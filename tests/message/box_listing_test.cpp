// Listing a box: the pages, the orders, the statements that are used, and the collection itself.
#include <gtest/gtest.h>

#include <set>

#include "frame/error_numbers.h"
#include "support/message_store.h"
#include "support/watched_connection.h"

namespace korvane {
namespace {

using test::MessageStore;
using test::WatchedConnection;
using Request = MailMessages::ListRequest;

constexpr auto kAsc = EMailOrderDirection::ORDER_ASC;
constexpr auto kDesc = EMailOrderDirection::ORDER_DESC;

class BoxListing : public testing::Test {
 protected:
  // `count` rows in box 1, number i dated on the i-th minute.
  void Rows(int count, const std::string& date = "") {
    Transaction transaction(*store_.connection());
    for (int i = 1; i <= count; ++i) {
      char minute[40];
      std::snprintf(minute, sizeof minute, "2002-03-05 %02d:%02d:00", i / 60, i % 60);
      store_.connection()->Execute(
          "INSERT INTO mail (id_mail, id_utente, id_server, id_cartella, mittente, destinatario, "
          "oggetto, data, dimensione) VALUES (" +
          std::to_string(i) + ", 7, 2, 1, 'm" + std::to_string(i % 3) + "', 'd" +
          std::to_string(i % 4) + "', 'o" + std::to_string(i % 5) + "', '" +
          (date.empty() ? minute : date) + "', " + std::to_string(i % 6) + ")");
    }
    transaction.Commit();
  }
  bool List(const Request& request) {
    list_ = std::make_shared<MailMessages>();
    pages_ = mails_ = Any("before");
    return list_->ListBox(store_.account(), *watched_, request, &pages_, &mails_);
  }
  std::vector<int32_t> Ids() const {
    std::vector<int32_t> ids;
    for (const auto& message : list_->Items()) ids.push_back(message->Id());
    return ids;
  }
  std::string Statement() const { return watched_->statements.back(); }

  MessageStore store_;
  std::shared_ptr<WatchedConnection> watched_ =
      std::make_shared<WatchedConnection>(store_.connection());
  std::shared_ptr<MailMessages> list_;
  Any pages_;
  Any mails_;
};

std::vector<int32_t> Descending(int from, int to) {
  std::vector<int32_t> ids;
  for (int i = from; i >= to; --i) ids.push_back(i);
  return ids;
}

TEST_F(BoxListing, PageOneOfAnEmptyBoxIsEmptyAndNoError) {
  EXPECT_TRUE(List({.page = 1}));
  EXPECT_EQ(list_->GetLastError(), 0);
  EXPECT_EQ(list_->Count(), 0);
  EXPECT_EQ(pages_.ToInt32(), 0);
  EXPECT_EQ(mails_.ToInt32(), 0);
}

TEST_F(BoxListing, PageTwoOfAnEmptyBoxIs1089) {
  EXPECT_FALSE(List({.page = 2}));
  EXPECT_EQ(list_->GetLastError(), error::PageOutOfRange);
  EXPECT_EQ(list_->GetLastErrorDesc(), "XXX");
}

TEST_F(BoxListing, PagesOutsideTheBoxAre1089) {
  Rows(25);
  store_.account()->MailListPageSize(10);
  for (const int32_t page : {0, -2, 4, 2'147'483'647, -2'147'483'647}) {
    EXPECT_FALSE(List({.page = page})) << page;
    EXPECT_EQ(list_->GetLastError(), error::PageOutOfRange) << page;
    EXPECT_EQ(list_->Count(), 0);
    EXPECT_EQ(pages_.ToInt32(), 3);
    EXPECT_EQ(mails_.ToInt32(), 25);
  }
}

TEST_F(BoxListing, APageSizeOfZeroOrLessIs1089) {
  for (const int rows : {0, 3}) {
    Rows(rows);
    for (const int32_t size : {0, -1, -2'147'483'647}) {
      store_.account()->MailListPageSize(size);
      EXPECT_FALSE(List({.page = 1}));
      EXPECT_EQ(list_->GetLastError(), error::PageOutOfRange);
    }
  }
  EXPECT_TRUE(List({.page = -1})) << "the whole box needs no page size";
  EXPECT_EQ(list_->Count(), 3);
}

TEST_F(BoxListing, TheLargestPageSizeOverflowsNothing) {
  Rows(3);
  store_.account()->MailListPageSize(2'147'483'647);
  EXPECT_TRUE(List({.page = 1}));
  EXPECT_EQ(Ids(), Descending(3, 1));
  EXPECT_FALSE(List({.page = 2'147'483'647}));
}

TEST_F(BoxListing, TheWholeBoxComesOrderedWithItsCountAndThePagesUntouched) {
  Rows(30);
  EXPECT_TRUE(List({.page = -1}));
  EXPECT_EQ(Ids(), Descending(30, 1));
  EXPECT_EQ(mails_.ToInt32(), 30);
  EXPECT_EQ(pages_.ToText(), "before");
  EXPECT_EQ(watched_->statements,
            std::vector<std::string>{"SELECT * FROM mail WHERE id_utente=7 AND id_cartella=1 AND "
                                     "Cancellata=0 ORDER BY Data DESC"});
}

TEST_F(BoxListing, TwentyFiveRowsInTensAreThreePagesAndTheThirdIsReadFromTheOtherEnd) {
  Rows(25);
  store_.account()->MailListPageSize(10);
  EXPECT_TRUE(List({.page = 3}));
  EXPECT_EQ(pages_.ToInt32(), 3);
  EXPECT_EQ(mails_.ToInt32(), 25);
  EXPECT_EQ(Ids(), Descending(5, 1)) << "rows 21 to 25 of the order";
  EXPECT_EQ(watched_->statements,
            (std::vector<std::string>{
                "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1AND "
                "Cancellata=0",
                "SELECT TOP 5 * FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0 "
                "ORDER BY Data ASC"}));
}

TEST_F(BoxListing, PageNineOfAHundredRowsInTensAsksForTwentyInTheOppositeDirection) {
  Rows(100);
  store_.account()->MailListPageSize(10);
  EXPECT_TRUE(List({.page = 9}));
  EXPECT_EQ(Ids(), Descending(20, 11)) << "rows 81 to 90";
  EXPECT_EQ(Statement(),
            "SELECT TOP 20 * FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0 ORDER "
            "BY Data ASC");
}

TEST_F(BoxListing, EveryOrderAndDirectionHasItsStatement) {
  Rows(3);
  const char* const head =
      "SELECT * FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0 ORDER BY ";
  const auto statement = [&](int order, int direction, int second) {
    List({.order = static_cast<EMailOrder>(order),
          .direction = static_cast<EMailOrderDirection>(direction),
          .date_direction = static_cast<EMailOrderDirection>(second)});
    EXPECT_TRUE(Statement().starts_with(head));
    return Statement().substr(std::string(head).size());
  };
  EXPECT_EQ(statement(0, 0, 0), "Data ASC");
  EXPECT_EQ(statement(0, 1, 0), "Data DESC");
  EXPECT_EQ(statement(0, 7, 0), "Data");
  EXPECT_EQ(statement(1, 0, 1), "mittente ASC, Data DESC");
  EXPECT_EQ(statement(1, 7, 7), "mittente");
  EXPECT_EQ(statement(2, 1, 0), "oggetto DESC, Data ASC");
  EXPECT_EQ(statement(3, 0, 0), "dimensione ASC, Data ASC");
  EXPECT_EQ(statement(4, 1, 1), "destinatario DESC, Data DESC");
  EXPECT_EQ(statement(4, 1, 9), "destinatario DESC");
}

TEST_F(BoxListing, AReversedPageTurnsBothDirections) {
  Rows(9);
  store_.account()->MailListPageSize(3);
  List({.order = EMailOrder::ORDER_NAME, .direction = kAsc, .date_direction = kDesc, .page = 3});
  EXPECT_TRUE(Statement().ends_with("ORDER BY mittente DESC, Data ASC"));
  List({.order = EMailOrder::ORDER_NAME, .direction = kDesc, .date_direction = kAsc, .page = 3});
  EXPECT_TRUE(Statement().ends_with("ORDER BY mittente ASC, Data DESC"));
}

TEST_F(BoxListing, AnOutOfRangeOrderOrdersByIdWithNoSecondaryOrder) {
  Rows(4);
  for (const int order : {5, -1, 99}) {
    EXPECT_TRUE(List({.order = static_cast<EMailOrder>(order), .direction = kAsc}));
    EXPECT_TRUE(Statement().ends_with("ORDER BY id_mail ASC"));
    EXPECT_EQ(Ids(), (std::vector<int32_t>{1, 2, 3, 4}));
  }
}

// Whatever the order, the pages together are the box, each message once and in the box's order.
TEST_F(BoxListing, ThePagesOfEveryOrderAreTheWholeBoxAlsoAmongEqualRows) {
  for (const char* date : {"", "2002-03-05 00:00:00"}) {
    store_.connection()->Execute("DELETE FROM mail");
    Rows(53, date);
    for (const int size : {1, 7, 10, 26, 53, 100}) {
      store_.account()->MailListPageSize(size);
      for (int order = 0; order <= 5; ++order) {
        for (const auto direction : {kAsc, kDesc}) {
          for (const auto second : {kAsc, kDesc}) {
            if (size == 1 && second == kAsc) continue;
            Request request{.order = static_cast<EMailOrder>(order),
                            .direction = direction,
                            .date_direction = second};
            ASSERT_TRUE(List(request));
            const std::vector<int32_t> whole = Ids();
            ASSERT_EQ(whole.size(), 53u);
            std::vector<int32_t> paged;
            const int pages = (53 + size - 1) / size;
            for (request.page = 1; request.page <= pages; ++request.page) {
              ASSERT_TRUE(List(request));
              const auto ids = Ids();
              paged.insert(paged.end(), ids.begin(), ids.end());
            }
            ASSERT_EQ(paged, whole) << "size " << size << " order " << order;
          }
        }
      }
    }
  }
}

TEST_F(BoxListing, DeletedRowsOtherBoxesAndOtherUsersAreNotListed) {
  Rows(6);
  store_.connection()->Execute("UPDATE mail SET Cancellata=-1 WHERE id_mail=1");
  store_.connection()->Execute("UPDATE mail SET id_cartella=2 WHERE id_mail=2");
  store_.connection()->Execute("UPDATE mail SET id_utente=8 WHERE id_mail=3");
  EXPECT_TRUE(List({.page = 1}));
  EXPECT_EQ(Ids(), Descending(6, 4));
  EXPECT_EQ(mails_.ToInt32(), 3);
}

TEST_F(BoxListing, AMessageIsFilledFromItsRow) {
  const auto saved = std::make_shared<MailMessage>();
  saved->PrepareNew(store_.account(), "");
  saved->NM_From("Ann O'Hara <ann@example.org>");
  saved->NM_MessageTo("bob@example.org");
  saved->NM_Subject("it's ''this''");
  saved->NM_SendDate("5/3/2002 9:5:7");
  saved->NM_Size(321);
  saved->NM_NewAttachment();
  ASSERT_TRUE(saved->NM_Save(store_.connection(), 1));
  store_.connection()->Execute("UPDATE mail SET Letto=-1");
  ASSERT_TRUE(List({}));
  const auto message = list_->ItemIndex(1);
  EXPECT_EQ(message->Id(), saved->Id());
  EXPECT_TRUE(message->Letto());
  EXPECT_EQ(message->From(), saved->From());
  EXPECT_EQ(message->MessageTo(), saved->MessageTo());
  EXPECT_EQ(message->Subject(ETextFormat::TextFormat_Normal), "it's ''this''");
  EXPECT_EQ(message->ReceivedDate(), "05/03/2002 09:05:07");
  EXPECT_EQ(message->SendDate(), "05/03/2002 09:05:07") << "a message saved here";
  EXPECT_EQ(message->Size(), 321);
  EXPECT_TRUE(message->ExistAttachments());
  store_.connection()->Execute("UPDATE mail SET id_server=2");
  ASSERT_TRUE(List({}));
  EXPECT_EQ(list_->ItemIndex(1)->SendDate(), "") << "a download's send date is not in the row";
}

TEST_F(BoxListing, ARowThatCannotBeReadIs1061AndTheReadingGoesOn) {
  Rows(3);
  int asked = 0;
  watched_->before = [&](const std::string& step) {
    if (step == "get oggetto" && ++asked == 2) {
      throw DatabaseError(DatabaseError::Kind::kOther, "damaged");
    }
  };
  EXPECT_FALSE(List({}));
  EXPECT_EQ(list_->GetLastError(), error::RowNotRead);
  EXPECT_EQ(list_->GetLastErrorDesc(), "XXX");
  EXPECT_EQ(list_->Count(), 3);
}

TEST_F(BoxListing, ADatabaseFaultEndsTheListingWith1008) {
  Rows(3);
  watched_->FailAt("execute SELECT COUNT", DatabaseError::Kind::kOther);
  EXPECT_FALSE(List({.page = 1}));
  EXPECT_EQ(list_->GetLastError(), error::DatabaseFault);
  watched_->FailAt("open SELECT", DatabaseError::Kind::kConnectionLost);
  EXPECT_FALSE(List({}));
  EXPECT_EQ(list_->GetLastError(), error::DatabaseFault);
}

TEST_F(BoxListing, ADatabaseThatStopsAnsweringEndsTheListingAtOnce) {
  Rows(20);
  for (const auto kind : {DatabaseError::Kind::kConnectionLost, DatabaseError::Kind::kBusy,
                          DatabaseError::Kind::kDeadlock, DatabaseError::Kind::kUnavailable}) {
    int asked = 0;
    watched_->before = [&](const std::string& step) {
      if (step == "get mittente" && ++asked >= 5) throw DatabaseError(kind, "gone");
    };
    EXPECT_FALSE(List({}));
    EXPECT_EQ(list_->GetLastError(), error::DatabaseFault);
    EXPECT_EQ(list_->GetLastErrorDesc(), "XXX");
    EXPECT_EQ(list_->Count(), 4) << "what came is kept";
    EXPECT_EQ(asked, 5) << "no further row is waited for";
  }
}

TEST_F(BoxListing, ASuccessClearsTheErrorOfAFailure) {
  store_.account()->MailListPageSize(0);
  MailMessages list;
  EXPECT_FALSE(list.ListBox(store_.account(), *watched_, {.page = 1}, nullptr, nullptr));
  store_.account()->MailListPageSize(5);
  EXPECT_TRUE(list.ListBox(store_.account(), *watched_, {.page = 1}, nullptr, nullptr));
  EXPECT_EQ(list.GetLastError(), 0);
}

TEST_F(BoxListing, ItemIndexOneIsTheFirstMessageAndItemFindsByIdentifier) {
  Rows(3);
  ASSERT_TRUE(List({}));
  EXPECT_EQ(list_->ItemIndex(1)->Id(), 3);
  EXPECT_EQ(list_->Item(2)->Id(), 2);
}

TEST(MailMessages, AMissingMemberIsNoObjectAndTheNumberThatClientsKnow) {
  MailMessages list;
  EXPECT_EQ(list.GetLastError(), 0);
  EXPECT_EQ(list.Item(4), nullptr);
  EXPECT_EQ(list.GetLastError(), 5);
  for (const int32_t position : {0, 1, -1, 2'147'483'647}) {
    EXPECT_EQ(list.ItemIndex(position), nullptr);
    EXPECT_EQ(list.GetLastError(), 9);
  }
  const auto message = std::make_shared<MailMessage>();
  list.Add(message, 4);
  EXPECT_EQ(list.Item(4), message);
  EXPECT_EQ(list.GetLastError(), 0);
  EXPECT_EQ(list.ItemIndex(1), message);
  EXPECT_EQ(list.Count(), 1);
}

}  // namespace
}  // namespace korvane
