/* Lists a user's inbox and opens its first message, in plain C.
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
static korvane_value value(int32_t type, int64_t number) {
  return (korvane_value){.type = type, .integer = number, .object = (korvane_object)number};
}
static korvane_value get(korvane_object from, const char* member) {
  must(korvane_get(from, member, NULL, 0, &result, &error));
  return result;
}
static korvane_object call(korvane_object on, const char* member, korvane_value* given, int count) {
  must(korvane_call(on, member, given, count, &result, &error));
  if (result.object || result.integer) return result.object;
  fprintf(stderr, "%s: error %d\n", member, (int)get(on, "GetLastError").integer);
  exit(1);
}

int main(int argc, char** argv) {
  korvane_object boss, web, database;
  korvane_value installation = value(KORVANE_INTEGER, argc > 1 ? atoi(argv[1]) : 1);
  korvane_value user = value(KORVANE_INTEGER, argc > 2 ? atoi(argv[2]) : 1);
  must(korvane_create("BossObject", &boss, &error));
  must(korvane_create("WebInterface", &web, &error));
  call(boss, "Init", &installation, 1);
  must(korvane_connect(get(boss, "DbConnectionString").text, &database, &error));
  korvane_value connection = value(KORVANE_OBJECT, database),
                settings = value(KORVANE_OBJECT, boss);
  must(korvane_let(web, "ConnDataBase", &connection, &error));
  must(korvane_let(web, "UserId", &user, &error));
  call(web, "Init", &settings, 1);

  korvane_value list[] = {value(KORVANE_INTEGER, 1), value(KORVANE_INTEGER, -1)};
  const korvane_object page = call(web, "GetListMessagesInBox", list, 2);
  const int count = (int)get(page, "Count").integer;
  for (int i = 1; i <= count; ++i) {
    korvane_value position = value(KORVANE_INTEGER, i);
    must(korvane_get(page, "ItemIndex", &position, 1, &result, &error));
    const korvane_object message = result.object;
    printf("%s  %d bytes\n", get(message, "FromName").text, (int)get(message, "Size").integer);
    korvane_value id = get(message, "Id"), body = {.type = KORVANE_EMPTY, .by_reference = 1};
    if (i > 1) continue;
    call(call(web, "GetMessage", &id, 1), "MessageBody", &body, 1);
    printf("\n%s\n\n", body.text);
  }
  return 0;
}
