/* Lists the first page of a user's inbox and opens its first message, in plain C.
 *   list_mail INSTALLATION USER     (cc list_mail.c -lkorvane) */
#include <stdio.h>
#include <stdlib.h>

#include "korvane_automation.h"

static korvane_error error;
static korvane_value result;

static void must(int32_t status) {
  if (status == KORVANE_OK) return;
  fprintf(stderr, "%s: %s (%d)\n", error.source, error.description, (int)error.number);
  exit(1);
}
static korvane_value number(int64_t n) { return (korvane_value){.type = KORVANE_INTEGER, .integer = n}; }
static korvane_value object(korvane_object o) { return (korvane_value){.type = KORVANE_OBJECT, .object = o}; }
static korvane_value get(korvane_object from, const char* member) {
  must(korvane_get(from, member, NULL, 0, &result, &error));
  return result;
}
static void init(korvane_object what, korvane_value argument) {
  must(korvane_call(what, "Init", &argument, 1, &result, &error));
  if (result.integer) return;
  fprintf(stderr, "%s: error %d\n", korvane_class(what), (int)get(what, "GetLastError").integer);
  exit(1);
}
static void let(korvane_object to, const char* member, korvane_value value) {
  must(korvane_let(to, member, &value, &error));
}

int main(int argc, char** argv) {
  korvane_object boss, web, database;
  must(korvane_create("BossObject", &boss, &error));
  must(korvane_create("WebInterface", &web, &error));
  init(boss, number(argc > 1 ? atoi(argv[1]) : 1));
  korvane_value url = get(boss, "DbConnectionString");
  must(korvane_connect(url.text, &database, &error));
  korvane_clear(&url);
  let(web, "ConnDataBase", object(database));
  let(web, "UserId", number(argc > 2 ? atoi(argv[2]) : 1));
  init(web, object(boss));
  korvane_value list[] = {number(1), number(-1), number(1), {.type = KORVANE_INTEGER, .by_reference = 1}};
  list[2].name = "lPageNum", list[3].name = "lTotMails";
  must(korvane_call(web, "GetListMessagesInBox", list, 4, &result, &error));
  const korvane_object page = result.object;
  printf("%d messages\n", (int)list[3].integer);
  for (int32_t i = 1, count = (int32_t)get(page, "Count").integer; i <= count; ++i) {
    korvane_value position = number(i), body[] = {{.type = KORVANE_EMPTY, .by_reference = 1}, number(1), number(0)};
    must(korvane_get(page, "ItemIndex", &position, 1, &result, &error));
    const korvane_object listed = result.object;
    printf("%s  %d bytes\n", get(listed, "FromName").text, (int)get(listed, "Size").integer);
    korvane_value id = get(listed, "Id");
    must(korvane_call(web, "GetMessage", &id, 1, &result, &error));
    if (i > 1 || !result.object) continue;
    must(korvane_call(result.object, "MessageBody", body, 3, &result, &error));
    printf("\n%s\n", body[0].text);
  }
  return 0;
}
