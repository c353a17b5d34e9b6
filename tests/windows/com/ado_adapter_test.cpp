// The page's connection as the component's database: what it is asked, in which words, and what
// becomes of answers that no database would give.
#include "automation/com/ado_connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "automation/com/values.h"
#include "windows/com/fake_ado.h"
#include "windows/com/server_under_test.h"

namespace korvane::test {
namespace {

using com::AdoConnection;
using testing::ElementsAre;

class AdoAdapter : public testing::Test {
 protected:
  AdoAdapter() {
    connection_ = std::make_shared<AdoConnection>(object_);
    connection_->MonthFirst(false);
  }
  ~AdoAdapter() override {
    connection_.reset();
    object_ = Reference<IDispatch>();
    EXPECT_EQ(FakesAlive(), 0);
  }
  /// The kind of the fault that `work` ends in.
  template <class Work>
  static DatabaseError::Kind KindOf(Work work) {
    try {
      work();
    } catch (const DatabaseError& fault) {
      return fault.kind();
    }
    ADD_FAILURE() << "no fault";
    return DatabaseError::Kind::kOther;
  }

  FakeDatabase database_;
  const FakeRecordsets recordsets_{database_};
  Reference<IDispatch> object_ = [this] {
    Reference<IDispatch> made;
    *made.Out() = NewFakeConnection(database_);
    return made;
  }();
  std::shared_ptr<AdoConnection> connection_;
};

TEST_F(AdoAdapter, StatementsReachTheConnectionAsTheyAre) {
  const std::string statement =
      "SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1AND Cancellata=0 ";
  database_.row["NumMail"] = Int(3);
  const auto rows = connection_->Execute(statement);
  EXPECT_EQ(rows->Field("NumMail").ToInt64(), 3);
  rows->Close();
  EXPECT_THAT(database_.log,
              ElementsAre("Execute " + statement, "Fields NumMail", "Value NumMail", "Close"));
}

TEST_F(AdoAdapter, ARecordsetIsOpenedWithItsCursorAndLock) {
  const auto rows = connection_->Open("mail");
  rows->Close();
  EXPECT_THAT(database_.log, ElementsAre("CursorLocation 2", "CursorType 2", "LockType 3",
                                         "Open mail object", "Close"));
}

TEST_F(AdoAdapter, RowsAreWalkedWithTheMembersThatADOHas) {
  database_.rows = 4;
  const auto rows = connection_->Open("SELECT * FROM mail");
  database_.log.clear();
  EXPECT_FALSE(rows->Eof());
  rows->MoveNext();
  rows->Move(2);
  rows->MovePrevious();
  rows->MoveLast();
  EXPECT_FALSE(rows->Eof());
  rows->MoveNext();
  EXPECT_TRUE(rows->Eof());
  EXPECT_THAT(database_.log, ElementsAre("EOF", "MoveNext", "Move 2", "MovePrevious", "MoveLast",
                                         "EOF", "MoveNext", "EOF"));
}

TEST_F(AdoAdapter, InFrontOfTheFirstRowThereIsNoneEither) {
  const auto rows = connection_->Open("SELECT * FROM mail");
  rows->MovePrevious();
  EXPECT_TRUE(rows->Eof());
  rows->MoveNext();
  EXPECT_FALSE(rows->Eof());
}

TEST_F(AdoAdapter, ACellWithoutANameIsReadByItsPlace) {
  database_.row["0"] = Int(41);
  EXPECT_EQ(connection_->Execute("SELECT MAX(id_mail) FROM mail")->FieldAt(0).ToInt64(), 41);
}

TEST_F(AdoAdapter, CellsAreReadAsWhatTheyAre) {
  database_.row["n"] = Int(5);
  database_.row["t"] = Text("O''Hara €");
  database_.row["b"] = Truth(true);
  database_.row["x"] = Null();
  VARIANT date = {};
  date.vt = VT_DATE;
  date.date = *com::DateOf("05/03/2002 09:05:07", false);
  database_.row["data"] = date;
  const auto rows = connection_->Execute("SELECT");
  EXPECT_EQ(rows->Field("n"), Any(5));
  EXPECT_EQ(rows->Field("t"), Any("O''Hara €"));
  EXPECT_EQ(rows->Field("b"), Any(true));
  EXPECT_TRUE(rows->Field("x").IsNull());
  EXPECT_EQ(rows->Field("data"), Any("05/03/2002 09:05:07"));
}

TEST_F(AdoAdapter, ADateGoesAsADateAndInTheOrderThatWasAskedFor) {
  for (const bool month_first : {false, true}) {
    connection_->MonthFirst(month_first);
    const auto row = connection_->Open("mail");
    const std::string text = month_first ? "03/05/2002 09:05:07" : "05/03/2002 09:05:07";
    row->SetField("Data", text);
    EXPECT_EQ(database_.written["Data"].vt, VT_DATE);
    EXPECT_EQ(database_.written["Data"].date, *com::DateOf("05/03/2002 09:05:07", false));
    EXPECT_EQ(row->Field("Data"), Any(text));
  }
}

TEST_F(AdoAdapter, ADateBeforeAutomationsOwnGoesAsAText) {
  const auto row = connection_->Open("ultimi_scaricamenti");
  row->SetField("Data", "01/01/0001 00:00:00");
  EXPECT_EQ(database_.written["Data"].vt, VT_BSTR);
  EXPECT_EQ(row->Field("Data"), Any("01/01/0001 00:00:00"));
}

TEST_F(AdoAdapter, ADriverWithoutDatesGivesTheirStoredTexts) {
  database_.row["data"] = Text("2002-03-05 09:05:07");
  database_.row["oggetto"] = Text("2002-03-05 09:05:07");
  const auto rows = connection_->Execute("SELECT");
  EXPECT_EQ(rows->Field("data"), Any("05/03/2002 09:05:07"));
  EXPECT_EQ(rows->Field("oggetto"), Any("2002-03-05 09:05:07")) << "a text is not touched";
}

TEST_F(AdoAdapter, ValuesAreWrittenAsWhatTheyAre) {
  const auto row = connection_->Open("mail");
  row->AddNew();
  row->SetField("a", true);
  row->SetField("b", -100);
  row->SetField("c", Any(nullptr));
  row->SetField("d", Any(std::string("x\0y", 3)));
  row->SetField("DataDownload", "05/03/2002 09:05:07");
  row->Update();
  EXPECT_EQ(database_.written["a"].vt, VT_BOOL);
  EXPECT_EQ(database_.written["a"].boolVal, -1);
  EXPECT_EQ(database_.written["b"].lVal, -100);
  EXPECT_EQ(database_.written["c"].vt, VT_NULL);
  EXPECT_EQ(com::TextOf(database_.written["d"].bstrVal), "x y") << "no engine holds a NUL";
  EXPECT_EQ(database_.written["DataDownload"].vt, VT_BSTR) << "a text column";
  EXPECT_TRUE(database_.Was("AddNew"));
  EXPECT_TRUE(database_.Was("Update"));
}

TEST_F(AdoAdapter, ARowThatIsBeingChangedIsGivenUpBeforeItIsClosed) {
  {
    const auto row = connection_->Open("mail");
    row->AddNew();
    database_.log.clear();
  }
  EXPECT_THAT(database_.log, ElementsAre("CancelUpdate", "Close"));
}

TEST_F(AdoAdapter, NumbersOfFaultsSayWhatCanBeDone) {
  struct {
    unsigned number;
    DatabaseError::Kind kind;
  } const cases[] = {
      {0x80040E2F, DatabaseError::Kind::kDuplicateKey},
      {0x80040E38, DatabaseError::Kind::kChanged},
      {0x80040E31, DatabaseError::Kind::kBusy},
      {0x800A0E78, DatabaseError::Kind::kConnectionLost},
      {0x80010108, DatabaseError::Kind::kConnectionLost},
      {0x80004005, DatabaseError::Kind::kOther},
  };
  for (const auto& one : cases) {
    database_.fails_at = "Execute";
    database_.fails_with = static_cast<HRESULT>(one.number);
    EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT"); }), one.kind) << one.number;
  }
}

TEST_F(AdoAdapter, EveryMemberMayFailAndEachFaultIsOne) {
  const auto work = [&] {
    const auto row = connection_->Open("mail");
    if (!row->Eof()) row->Move(0);
    row->MoveNext();
    row->MovePrevious();
    row->MoveLast();
    row->AddNew();
    row->SetField("x", 1);
    row->Field("x");
    row->Update();
    row->CancelUpdate();
    row->Close();
  };
  work();
  for (const char* member : {"CursorLocation", "CursorType", "LockType", "Open", "EOF", "Move",
                             "MoveNext", "MovePrevious", "MoveLast", "AddNew", "Fields", "Value",
                             "Update", "CancelUpdate", "Close"}) {
    database_.fails_at = member;
    database_.fails_saying = "è finita";
    try {
      work();
      ADD_FAILURE() << member;
    } catch (const DatabaseError& fault) {
      EXPECT_THAT(fault.what(), testing::HasSubstr("è finita")) << member;
    }
  }
}

TEST_F(AdoAdapter, AnswersThatAreNoneAreFaults) {
  database_.row["EOF"] = Text("maybe");
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Eof(); }), DatabaseError::Kind::kOther);
  database_.row.erase("EOF");
  database_.row["Fields"] = Int(5);
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Field("x"); }),
            DatabaseError::Kind::kOther);
  database_.row["Fields"] = Object(nullptr);
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Field("x"); }),
            DatabaseError::Kind::kOther);
  database_.row["Fields"] = Object(object_.get());
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Field("x"); }),
            DatabaseError::Kind::kOther);
  database_.row.erase("Fields");
  database_.row["x"] = Object(object_.get());
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Field("x"); }),
            DatabaseError::Kind::kOther);
  VARIANT date = {};
  date.vt = VT_DATE;
  date.date = 1e200;
  database_.row["x"] = date;
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Field("x"); }),
            DatabaseError::Kind::kOther);
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Field("nothing"); }),
            DatabaseError::Kind::kOther);
  database_.row["Execute"] = Null();
  const auto none = connection_->Execute("UPDATE");
  EXPECT_EQ(KindOf([&] { none->Eof(); }), DatabaseError::Kind::kOther);
  EXPECT_EQ(KindOf([&] { none->Field("x"); }), DatabaseError::Kind::kOther);
  none->Close();
  database_.row["Execute"] = Object(object_.get());
  EXPECT_EQ(KindOf([&] { connection_->Execute("SELECT")->Eof(); }), DatabaseError::Kind::kOther);
}

TEST_F(AdoAdapter, ATableThatIsNotThereIsAskedForOnce) {
  database_.fails_at = "Execute SELECT * FROM messaggi_eliminati";
  EXPECT_FALSE(connection_->HasTable("messaggi_eliminati"));
  EXPECT_FALSE(connection_->HasTable("messaggi_eliminati"));
  EXPECT_THAT(database_.log, ElementsAre("Execute SELECT * FROM messaggi_eliminati WHERE 1=0"));
  EXPECT_TRUE(connection_->HasTable("mail"));
  EXPECT_FALSE(connection_->HasTransactions());
}

TEST_F(AdoAdapter, ThePageKeepsItsReferencesAndNothingElseIsKept) {
  EXPECT_EQ(FakesAlive(), 1);
  {
    const auto rows = connection_->Open("mail");
    EXPECT_EQ(FakesAlive(), 2);
    rows->SetField("x", 1);
    EXPECT_EQ(FakesAlive(), 2);
  }
  EXPECT_EQ(FakesAlive(), 1);
}

TEST_F(AdoAdapter, TheProbeForTheDateOrderSaysWhatTheSettingsSay) {
  VARIANT date = {};
  date.vt = VT_DATE;
  date.date = *com::DateOf("22/04/2002", false);
  database_.row["data3"] = date;
  const auto boss = Create("BossObject");
  const Outcome done = Call(boss.get(), "Init2", {Object(object_.get())});
  EXPECT_TRUE(done.Truth());
  EXPECT_TRUE(database_.Was("Open select * from testdata where idtestdata = 1 object"));
  EXPECT_EQ(database_.written["data1"].vt, VT_DATE);
  wchar_t order[4] = {};
  GetLocaleInfoW(LOCALE_USER_DEFAULT, LOCALE_IDATE, order, 4);
  EXPECT_EQ(Call(boss.get(), "IsEnglishDate").Number(), order[0] == L'0' ? 1 : -1);
}

TEST_F(AdoAdapter, AnObjectThatIsNoConnectionIsRefused) {
  FakeDatabase other;
  database_.row["Execute"] = Object(nullptr);
  const auto web = Create("WebInterface");
  const auto boss = Create("BossObject");
  EXPECT_EQ(Put(web.get(), "ConnDataBase", Object(boss.get())).status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Put(web.get(), "ConnDataBase", Text("dsn=x")).status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Put(web.get(), "ConnDataBase", Int(5)).status, DISP_E_TYPEMISMATCH);
  EXPECT_EQ(Put(web.get(), "ConnDataBase", Object(object_.get())).status, S_OK);
  EXPECT_EQ(Put(web.get(), "ConnDataBase", Object(object_.get()), DISPATCH_PROPERTYPUTREF).status,
            S_OK);
  VARIANT variable = Object(object_.get());
  EXPECT_EQ(Put(web.get(), "ConnDataBase", ByReference(variable)).status, S_OK);
}

TEST_F(AdoAdapter, AConnectionThatCallsBackIsToldThatTheObjectIsBusy) {
  const auto boss = Create("BossObject");
  Outcome nested;
  database_.at = [&](const std::string& call) {
    if (call.starts_with("Open")) nested = Call(boss.get(), "Init", {Int(1)});
  };
  Call(boss.get(), "Init2", {Object(object_.get())});
  EXPECT_EQ(nested.status, DISP_E_EXCEPTION);
  EXPECT_EQ(nested.number, E_UNEXPECTED);
  database_.at = nullptr;
  EXPECT_EQ(Call(boss.get(), "Init", {Int(0)}).status, S_OK) << "and free again";
}

TEST_F(AdoAdapter, AnObjectMayBeReleasedInTheMiddleOfItsCall) {
  auto boss = Create("BossObject");
  IDispatch* const raw = boss.get();
  database_.at = [&](const std::string& call) {
    if (call.starts_with("Open")) boss = Reference<IDispatch>();
  };
  EXPECT_EQ(Call(raw, "Init2", {Object(object_.get())}).status, S_OK);
  EXPECT_FALSE(boss);
}

}  // namespace
}  // namespace korvane::test
