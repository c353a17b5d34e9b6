// Lists the newest page of a user's inbox, as a page of a site does: no server is asked.
#include <korvane/korvane.h>

#include <iostream>

using namespace korvane;

static int Fail(const ErrorState& object) {
  std::cerr << "error " << object.GetLastError() << " " << object.GetLastErrorDesc() << "\n";
  return 1;
}

int main() {
  const int32_t installation = 1;
  const int32_t user = 1;  // a site knows who is signed in

  const auto boss = std::make_shared<BossObject>();
  if (!boss->Init(installation)) return Fail(*boss);
  const auto database = OpenDatabase(boss->DbConnectionString());
  boss->Init2(database);

  WebInterface web;
  web.ConnDataBase(database);
  web.UserId(user);
  if (!web.Init(boss)) return Fail(web);

  Any pages, mails;
  const auto messages =
      web.GetListMessagesInBox(1, -1, true, false, "", false, EMailOrder::ORDER_DATA,
                               EMailOrderDirection::ORDER_DESC, 1, &pages, &mails);
  if (web.GetLastError() != 0) return Fail(web);
  std::cout << mails.ToText() << " messages on " << pages.ToText() << " pages\n";
  for (const auto& message : messages->Items()) {
    std::cout << message->Id() << "  " << message->FromName() << "  "
              << message->Subject(ETextFormat::TextFormat_Normal) << "\n";
  }
  return 0;
}
