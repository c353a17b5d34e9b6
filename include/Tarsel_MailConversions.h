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

/* Connects to `host` (name, IPv4 or IPv6 address) at TCP port `port`, trying every address within
 * `timeout` milliseconds (0 or less: 60,000), and stores a handle in `*socket`. Reads nothing from
 * the server. The time-out is kept with the socket and bounds every later MPrecv and MPsend.
 *
 * TLS (RFC 8314): port 995, or a host written "pop3s://name", speaks TLS from the first byte, with
 * the peer's certificate and name verified against the system's store. "pop3://name" forces plain
 * text. "pop3s-insecure://name" speaks TLS without verifying, for a test server, and says so on
 * standard error. A host may carry a port of its own after ":" only in these prefixed forms; it
 * then replaces `port`.
 *
 * Returns 0 when the connection stands; any other value is a failure and leaves `*socket` alone. */
MP_API int32_t MP_CALL MPconnect(int32_t* socket, int32_t port, const char* host, int32_t timeout);

/* Sends all `count` bytes. Returns how many were sent; below 1 is a failure. Raises no signal. */
MP_API int32_t MP_CALL MPsend(int32_t socket, const char* bytes, int32_t count);

/* Waits until at least one byte is there, then returns what is there, at most `capacity` bytes.
 * Returns the number of bytes placed in `buffer`; 0 when the peer has closed; below 0 when the
 * time-out ran out or the connection failed. Adds no terminator. */
MP_API int32_t MP_CALL MPrecv(int32_t socket, char* buffer, int32_t capacity);

/* Closes the connection and gives the handle back; tolerates a dead connection and a handle that
 * is not open. The result carries no meaning. */
MP_API int32_t MP_CALL MPclose(int32_t socket);

/* Base64 (RFC 2045 section 6.8). `output` holds at least (3 * n) / 4 + 2 bytes. Characters outside
 * the alphabet are skipped; padding ends a quantum and decoding goes on behind it. */
MP_API int32_t MP_CALL Base64Decode(const char* input, char* output, int32_t* length);

/* Quoted-printable (RFC 2045 section 6.7), decoded in place; never grows. A stray "=" stays text,
 * lower-case digits count, blanks between "=" and the line end go with the soft break. */
MP_API int32_t MP_CALL QuotedPrintableDecode(char* buffer, int32_t* length);

/* The data lines of a uuencoded file, separated by CR LF, without its "begin", "`" and "end" lines.
 * `output` holds at least (3 * n) / 4 + 2 bytes. A line shorter than its count gives what it
 * holds. */
MP_API int32_t MP_CALL UUDecode(const char* input, char* output, int32_t* length);

/* `text` is a NUL-terminated string of 16-bit characters each of which is one byte as the system
 * code page (Windows-1252) shows it. Sequences of such bytes that form UTF-8 (RFC 3629) become the
 * UTF-16 they encode, in place; any other character stays. The rest, up to the old end, is NULs. */
MP_API int32_t MP_CALL UTF8Decode(uint16_t* text);

/* How many bytes longer than `length` the HTML form of the text is; 0 or more. */
MP_API int32_t MP_CALL NumCharReqPlusForConvTextToHTML(const char* input, int32_t length);

/* Plain text to HTML that reads the same inside and outside a preformatted block: & < > " ' become
 * references, a line end (CR LF, CR or LF) becomes <br>, a tab becomes blanks to the next multiple
 * of 8, blanks that HTML would swallow become &nbsp;. `output` holds at least
 * n + NumCharReqPlusForConvTextToHTML(input, n) + 1 bytes. */
MP_API int32_t MP_CALL ConvTextToHTML(const char* input, char* output, int32_t* length);

#ifdef __cplusplus
}
#endif

#endif
