/* Tarsel_MailConversions: the sockets and the conversions of a mail back end, as plain C.
 *
 * Ten functions, no state between calls, no memory that the caller must free. They may be called
 * from any number of threads at once. None of them reports an error other than by its result.
 *
 * Lengths are 32-bit signed counts of bytes. A function that takes the address of a length reads
 * the input's length from it and writes the output's length into it; an empty input stores 0.
 * A length below 0 is taken for 0. No function writes past the sizes stated at it, whatever the
 * input holds.
 */
#ifndef TARSEL_MAILCONVERSIONS_H
#define TARSEL_MAILCONVERSIONS_H

#include <stdint.h>

#ifdef _WIN32
#define MP_CALL __stdcall
#else
#define MP_CALL
#endif

#if defined(_WIN32) && defined(TARSEL_MAILCONVERSIONS_BUILD)
#define MP_API __declspec(dllexport)
#elif defined(_WIN32)
#define MP_API __declspec(dllimport)
#else
#define MP_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Connects to `host` (name, IPv4 or IPv6 address) at TCP port `port`, trying every address of
 * the host within `timeout` milliseconds (0 or less: 60,000), and stores a handle above 0 in
 * `*socket`. Reads nothing from the server. The time-out is kept with the socket and bounds
 * every later MPrecv and MPsend, each as a whole.
 *
 * TLS (RFC 8314), 1.2 or later: port 995, or a host written "pop3s://name", speaks TLS from the
 * first byte, with the peer's certificate and name (or address) verified against the system's
 * store, or against what SSL_CERT_FILE and SSL_CERT_DIR name (on Windows the store alone, and 1.2
 * only). "pop3://name" forces plain text.
 * "pop3s-insecure://name" speaks TLS without verifying, for a test server, and says so in a line
 * on standard error. "+ahead" before the "://" of any of these changes nothing here: it is a mark
 * for the caller. A host may carry a port of its own after ":" only in these prefixed forms,
 * an IPv6 address then in brackets; it replaces `port`.
 *
 * Returns 0 when the connection stands; any other value is a failure and leaves `*socket` alone. */
MP_API int32_t MP_CALL MPconnect(int32_t* socket, int32_t port, const char* host, int32_t timeout);

/* Sends all `count` bytes and returns `count`, or a value below 1 when not all of them could be
 * sent within the time-out. Raises no signal. */
MP_API int32_t MP_CALL MPsend(int32_t socket, const char* bytes, int32_t count);

/* Waits until at least one byte is there, then returns what is there, at most `capacity` bytes.
 * Returns the number of bytes placed in `buffer`; 0 when the peer has closed; below 0 when the
 * time-out ran out or the connection failed. Adds no terminator. */
MP_API int32_t MP_CALL MPrecv(int32_t socket, char* buffer, int32_t capacity);

/* Closes the connection and gives the handle back; tolerates a dead connection and a handle that
 * is not open. A released handle is refused from then on: its number is not given to the next
 * connection. The result carries no meaning. */
MP_API int32_t MP_CALL MPclose(int32_t socket);

/* Base64 (RFC 2045 section 6.8). `output` holds at least (3 * n) / 4 + 2 bytes, of which the
 * last two stay untouched, and is not the input. Characters outside the alphabet are skipped;
 * padding, or the end of the input, ends a quantum, and decoding goes on behind it. */
MP_API int32_t MP_CALL Base64Decode(const char* input, char* output, int32_t* length);

/* Quoted-printable (RFC 2045 section 6.7), decoded in place; never grows. A soft break ends with
 * CR LF, a bare LF or the end of the input; blanks between its "=" and the line end go with it.
 * A stray "=" stays text, lower-case digits count, and all else, blanks before a line end
 * included, stays. */
MP_API int32_t MP_CALL QuotedPrintableDecode(char* buffer, int32_t* length);

/* The data lines of a uuencoded file, separated by CR LF or LF, without its "begin", "`" and
 * "end" lines. `output` holds at least (3 * n) / 4 + 2 bytes and is not the input. A line
 * shorter than its count gives what it holds; what a line holds beyond its count is not looked
 * at. */
MP_API int32_t MP_CALL UUDecode(const char* input, char* output, int32_t* length);

/* `text` is a NUL-terminated string of 16-bit characters each of which is one byte as the system
 * code page (Windows-1252) shows it; a control character from U+0080 to U+009F is the byte of
 * its value. Sequences of such bytes that form UTF-8 (RFC 3629) become the UTF-16 they encode,
 * in place; any other character stays. The rest, up to the old end, is NULs. */
MP_API int32_t MP_CALL UTF8Decode(uint16_t* text);

/* How many bytes longer than `length` the HTML form of the text is, exactly; 0 or more. */
MP_API int32_t MP_CALL NumCharReqPlusForConvTextToHTML(const char* input, int32_t length);

/* Plain text to HTML that reads the same inside and outside a preformatted block:
 *  - & < > " ' become &amp; &lt; &gt; &quot; &#39;
 *  - a line end (CR LF, CR or LF) becomes <br>, and no other line end is written
 *  - a tab becomes blanks up to the next column that is a multiple of 8; columns count from the
 *    line start in characters of UTF-8, that is, bytes other than 80-BF (the first of a line
 *    always counts)
 *  - a blank stays a blank where something stands before it in its line and neither a blank, a
 *    tab nor the end of the line or text follows; any other would be swallowed and becomes
 *    &nbsp;. So of a run of blanks inside a line the last one stays, and lines can still be
 *    broken there.
 * Every other byte is copied. `output` holds at least n + NumCharReqPlusForConvTextToHTML(input,
 * n) + 1 bytes and is not the input. HTML that these 32-bit numbers could not describe (more
 * than 2,147,483,646 bytes) ends before the first piece that would take it beyond them, in both
 * functions alike. */
MP_API int32_t MP_CALL ConvTextToHTML(const char* input, char* output, int32_t* length);

#ifdef __cplusplus
}
#endif

#endif
