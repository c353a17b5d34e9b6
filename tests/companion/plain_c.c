/* The whole companion library from C11: that its header is plain C, and that a C program gets by
 * with it alone. Each function returns 0, or the line of the first check that failed. */
#include "Tarsel_MailConversions.h"

#include <stdint.h>
#include <string.h>

#define CHECK(condition)               \
  do {                                 \
    if (!(condition)) return __LINE__; \
  } while (0)

int plain_c_conversions(void);
int plain_c_sockets(int32_t port);

int plain_c_conversions(void) {
  char output[64];
  int32_t length = 8;
  Base64Decode("SGVsbG8=", output, &length);
  CHECK(length == 5 && memcmp(output, "Hello", 5) == 0);

  char buffer[] = "a=3Db=\r\nc";
  length = (int32_t)strlen(buffer);
  QuotedPrintableDecode(buffer, &length);
  CHECK(length == 4 && memcmp(buffer, "a=bc", 4) == 0);

  length = 5;
  UUDecode("#0V%T", output, &length);
  CHECK(length == 3 && memcmp(output, "Cat", 3) == 0);

  uint16_t text[] = {'a', 0xC3, 0xA0, 0};
  UTF8Decode(text);
  CHECK(text[0] == 'a' && text[1] == 0xE0 && text[2] == 0 && text[3] == 0);

  const char* plain = "a<b";
  const int32_t more = NumCharReqPlusForConvTextToHTML(plain, 3);
  CHECK(more == 3);
  length = 3;
  ConvTextToHTML(plain, output, &length);
  CHECK(length == 3 + more && memcmp(output, "a&lt;b", 6) == 0);
  return 0;
}

/* Against a server that greets, and answers one line by "+OK". */
int plain_c_sockets(int32_t port) {
  int32_t socket = 0;
  char buffer[16384];
  CHECK(MPconnect(&socket, port, "127.0.0.1", 5000) == 0);
  CHECK(socket != 0);
  int32_t count = MPrecv(socket, buffer, sizeof buffer);
  CHECK(count >= 3 && memcmp(buffer, "+OK", 3) == 0);
  CHECK(MPsend(socket, "NOOP\r\n", 6) == 6);
  count = MPrecv(socket, buffer, sizeof buffer);
  CHECK(count >= 3 && memcmp(buffer, "+OK", 3) == 0);
  MPclose(socket);
  CHECK(MPrecv(socket, buffer, sizeof buffer) < 0);
  return 0;
}
