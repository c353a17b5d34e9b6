// Downloads the new mail of a user's default account and lists the first page of the inbox.
//   sync_and_list [INSTALLATION [USER]]
#include <korvane/korvane.h>

#include <cstdlib>
#include <iostream>

using namespace korvane;

static int Fail(const ErrorState& object) {
  const ErrorEntry* entry = FindError(object.GetLastError());
  std::cerr << object.GetLastError() << ": " << (entry ? entry->meaning : "unknown") << "\n";
  return 1;
}

int main(int argc, char** argv) try {
  const auto settings = std::make_shared<BossObject>();
  if (!settings->Init(argc > 1 ? std::atoi(argv[1]) : 1)) return Fail(*settings);
  const auto database = OpenDatabase(settings->DbConnectionString());
  settings->Init2(database);

  WebInterface web;
  web.ConnDataBase(database);
  web.UserId(argc > 2 ? std::atoi(argv[2]) : 1);
  if (!web.Init(settings)) return Fail(web);

  Any pages, mails;
  const auto page =
      web.GetListMessagesInBox(1, -10, false, false, "", false, EMailOrder::ORDER_DATA,
                               EMailOrderDirection::ORDER_DESC, 1, &pages, &mails);
  if (web.GetLastError() != 0) return Fail(web);
  std::cout << mails.ToText() << " messages on " << pages.ToText() << " pages\n";
  for (int32_t i = 1; i <= page->Count(); ++i) {
    const auto message = page->ItemIndex(i);
    std::cout << message->ReceivedDate() << "  " << message->From() << "  "
              << message->Subject(ETextFormat::TextFormat_Normal) << "\n";
  }
  return 0;
} catch (const DatabaseError& fault) {
  std::cerr << fault.what() << "\n";
  return 1;
}
