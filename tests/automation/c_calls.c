/* The automation interface as a C program sees it. Each function returns NULL, or what went wrong.
 */
#include <stddef.h>
#include <string.h>

#include "korvane_automation.h"

#define EXPECT(condition)                \
  do {                                   \
    if (!(condition)) return #condition; \
  } while (0)

const char* c_objects_are_created_used_and_released(void) {
  korvane_object web = 0;
  korvane_error error;
  korvane_value value = {0}, result;
  EXPECT(korvane_create("WebInterface", &web, &error) == KORVANE_OK && web != 0);
  EXPECT(strcmp(korvane_class(web), "WebInterface") == 0);
  EXPECT(korvane_get(web, "Version", NULL, 0, &result, &error) == KORVANE_OK);
  EXPECT(result.type == KORVANE_TEXT && strcmp(result.text, "Database") == 0 &&
         result.text_length == 8);
  korvane_clear(&result);
  EXPECT(result.type == KORVANE_EMPTY && result.text == NULL);
  korvane_clear(&result);
  value.type = KORVANE_TEXT;
  value.text = "7";
  value.text_length = -1;
  EXPECT(korvane_let(web, "UserId", &value, &error) == KORVANE_OK);
  EXPECT(korvane_get(web, "UserId", NULL, 0, &result, NULL) == KORVANE_OK);
  EXPECT(result.type == KORVANE_INTEGER && result.integer == 7);
  EXPECT(korvane_release(web) == KORVANE_OK);
  EXPECT(korvane_release(web) == KORVANE_BAD_OBJECT);
  EXPECT(strcmp(korvane_class(web), "") == 0);
  EXPECT(korvane_get(web, "UserId", NULL, 0, &result, &error) == KORVANE_BAD_OBJECT);
  return NULL;
}

const char* c_the_guard_raises_with_number_source_and_description(void) {
  korvane_object web = 0, basic = 0;
  korvane_error error;
  korvane_value one = {.type = KORVANE_INTEGER, .integer = 1}, result;
  EXPECT(korvane_create("WebInterface", &web, &error) == KORVANE_OK);
  EXPECT(korvane_call(web, "GetMessage", &one, 1, &result, &error) == KORVANE_RAISED);
  EXPECT(error.number == 1500 && strcmp(error.source, "WebInterface") == 0);
  EXPECT(strcmp(error.description, "Oggetto non inizializzato") == 0);
  EXPECT(korvane_create("BasicInterface", &basic, &error) == KORVANE_OK);
  EXPECT(korvane_call(basic, "GetMessage", &one, 1, &result, &error) == KORVANE_RAISED);
  EXPECT(error.number == 1499 && strcmp(error.source, "BasicInterface") == 0);
  korvane_release(basic);
  korvane_release(web);
  return NULL;
}

const char* c_mistakes_are_refused_with_their_code(void) {
  korvane_object boss = 0;
  korvane_error error;
  korvane_value two[2] = {{.type = KORVANE_INTEGER, .integer = 1},
                          {.type = KORVANE_INTEGER, .integer = 1}};
  korvane_value result, odd = {.type = 99}, stranger = {.type = KORVANE_OBJECT, .object = 12345};
  EXPECT(korvane_create("Nothing", &boss, &error) == KORVANE_NO_CLASS && boss == 0);
  EXPECT(korvane_create(NULL, &boss, NULL) == KORVANE_NO_CLASS);
  EXPECT(korvane_create("BossObject", NULL, NULL) == KORVANE_BAD_ARGUMENT);
  EXPECT(korvane_create("BossObject", &boss, &error) == KORVANE_OK);
  EXPECT(korvane_call(boss, "Nothing", NULL, 0, &result, &error) == KORVANE_NO_MEMBER);
  EXPECT(korvane_call(boss, NULL, NULL, 0, &result, &error) == KORVANE_NO_MEMBER);
  EXPECT(korvane_call(boss, "KorvaneId", NULL, 0, &result, &error) == KORVANE_NO_MEMBER);
  EXPECT(korvane_call(boss, "Init", two, 2, &result, &error) == KORVANE_BAD_ARGUMENT);
  EXPECT(korvane_call(boss, "Init", NULL, 1, &result, &error) == KORVANE_BAD_ARGUMENT);
  EXPECT(korvane_call(boss, "Init", two, -1, &result, &error) == KORVANE_BAD_ARGUMENT);
  EXPECT(korvane_call(boss, "Init", &odd, 1, &result, &error) == KORVANE_BAD_ARGUMENT);
  EXPECT(korvane_call(boss, "Init2", &stranger, 1, &result, &error) == KORVANE_BAD_ARGUMENT);
  EXPECT(korvane_let(boss, "KorvaneId", two, &error) == KORVANE_NO_MEMBER);
  EXPECT(korvane_let(boss, "KorvaneId", NULL, &error) == KORVANE_BAD_ARGUMENT);
  korvane_release(boss);
  return NULL;
}

const char* c_an_omitted_argument_takes_its_default(void) {
  korvane_object basic = 0;
  korvane_value missing = {.type = KORVANE_MISSING},
                named = {.name = "bOpenConnection", .type = KORVANE_BOOL};
  korvane_value result, host = {.type = KORVANE_TEXT, .text = "127.0.0.1", .text_length = -1};
  korvane_value port = {.type = KORVANE_INTEGER, .integer = 1};
  EXPECT(korvane_create("BasicInterface", &basic, NULL) == KORVANE_OK);
  EXPECT(korvane_let(basic, "MailServer", &host, NULL) == KORVANE_OK);
  EXPECT(korvane_let(basic, "ServerPort", &port, NULL) == KORVANE_OK);
  /* The default connects, and nobody listens there. */
  EXPECT(korvane_call(basic, "Init", &missing, 1, &result, NULL) == KORVANE_OK && !result.integer);
  EXPECT(korvane_get(basic, "GetLastError", NULL, 0, &result, NULL) == KORVANE_OK &&
         result.integer == 1093);
  EXPECT(korvane_call(basic, "Init", &named, 1, &result, NULL) == KORVANE_OK &&
         result.integer == 1);
  korvane_release(basic);
  return NULL;
}

const char* c_a_database_that_cannot_be_opened_is_told(void) {
  korvane_object connection = 1;
  korvane_error error;
  EXPECT(korvane_connect("sqlite:///nowhere/at/all/mail.db", &connection, &error) ==
         KORVANE_NO_CONNECTION);
  EXPECT(connection == 0 && error.description[0] != '\0');
  EXPECT(korvane_connect(NULL, &connection, &error) == KORVANE_NO_CONNECTION);
  return NULL;
}

const char* c_the_object_model_is_data(void) {
  EXPECT(strstr(korvane_object_model(), "\"name\":\"WebInterface\",\"creatable\":true") != NULL);
  EXPECT(strstr(korvane_object_model(), "\"name\":\"EMailOrder\"") != NULL);
  return NULL;
}
