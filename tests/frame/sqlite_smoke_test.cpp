#include <gtest/gtest.h>
#include <filesystem>
#include "frame/database.h"
#include "frame/schema.h"
#include "frame/sql_text.h"
using namespace korvane;
TEST(Smoke, Works) {
  const std::string path = testing::TempDir() + "smoke.db";
  std::filesystem::remove(path);
  const std::string url = "sqlite://" + path;
  CreateSchema(url);
  CreateSchema(url);
  EXPECT_EQ(1, SchemaVersion(url));
  auto c = OpenDatabase(url);
  {
    Transaction t(*c, Transaction::Kind::kAllocating);
    auto r = c->Open("mail");
    EXPECT_TRUE(r->Eof());
    for (int i = 0; i < 40; ++i) {
      r->AddNew();
      r->SetField("id_mail", NextIdentifier(*c, "SELECT MAX(id_mail) FROM mail"));
      r->SetField("id_utente", 7);
      r->SetField("MITTENTE", "a");
      r->SetField("data", "5/3/2002 9:5:" + std::to_string(i));
      r->Update();
      r->SetField("IdSulServer", -100);
      r->Update();
    }
    t.Commit();
  }
  auto n = c->Execute("SELECT COUNT(*) AS NumMail FROM mail WHERE id_utente=7 AND id_cartella=1AND Cancellata=0");
  EXPECT_EQ(40, n->Field("nummail").ToInt32());
  auto r = c->Open("SELECT TOP 30 * FROM mail WHERE id_utente=7 AND id_cartella=1 AND Cancellata=0 ORDER BY mittente DESC, Data DESC");
  r->Move(20);
  EXPECT_EQ(20, r->Field("id_mail").ToInt32());
  EXPECT_EQ("05/03/2002 09:05:19", r->Field("Data").ToText());
  EXPECT_EQ(-100, r->Field("IdSulServer").ToInt32());
  r->MoveLast();
  EXPECT_EQ(11, r->Field("id_mail").ToInt32());
  r->MoveNext();
  EXPECT_TRUE(r->Eof());
}
