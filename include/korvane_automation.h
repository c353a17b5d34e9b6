/* The component's objects for any language that can call C: create an object by its class name,
 * then read, write and call its members by name with any-values.
 *
 * The classes, their members, parameters and defaults are the object model (docs/object_model.md);
 * korvane_object_model() returns it as JSON, so that a binding needs no table of its own.
 *
 * Objects are numbers. One that was released, that was never handed out or that is of another class
 * is refused, not followed. An object belongs to one thread at a time; different objects may be
 * used from different threads at once. Objects may be released in any order: a message stays good
 * after the facade that handed it out is gone.
 *
 * Texts are UTF-8 with a length, so they may hold NULs. A text that the library hands out belongs
 * to the caller until korvane_clear; a text that the caller hands in is copied.
 */
#ifndef KORVANE_AUTOMATION_H
#define KORVANE_AUTOMATION_H

#include <stdint.h>

#if defined(_WIN32)
#define KORVANE_API
#else
#define KORVANE_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* An object of the library; 0 is no object. */
typedef uint64_t korvane_object;

/* What an any-value holds. */
enum {
  KORVANE_EMPTY = 0,   /* nothing yet; 0, false or "" where one of those is wanted */
  KORVANE_NULL = 1,    /* the database's NULL */
  KORVANE_BOOL = 2,    /* `integer`, 0 or 1 */
  KORVANE_INTEGER = 3, /* `integer` */
  KORVANE_DOUBLE = 4,  /* `number` */
  KORVANE_TEXT = 5,    /* `text`, `text_length` */
  KORVANE_OBJECT = 6,  /* `object` */
  KORVANE_MISSING = 7  /* an omitted argument: it takes the published default */
};

typedef struct korvane_value {
  const char* name;     /* of an argument given by its published name; NULL by position */
  int32_t type;         /* one of the above */
  int32_t by_reference; /* not 0: the argument is overwritten by what the call left in it */
  int64_t integer;
  double number;
  const char* text;
  int64_t text_length; /* in bytes; -1 in an argument: up to the NUL */
  korvane_object object;
} korvane_value;

/* Why a call failed. */
enum {
  KORVANE_OK = 0,
  KORVANE_RAISED = 1,       /* the member raised an automation error: number, source, description */
  KORVANE_NO_MEMBER = 2,    /* the class has no such member of that kind */
  KORVANE_BAD_ARGUMENT = 3, /* too many, too few, an unknown name, or of the wrong type */
  KORVANE_BAD_OBJECT = 4,   /* released, or never handed out */
  KORVANE_NO_CLASS = 5,     /* no creatable class of that name */
  KORVANE_NO_CONNECTION = 6 /* the database cannot be opened */
};

typedef struct korvane_error {
  int32_t number;
  char source[64];
  char description[448]; /* UTF-8, cut at a character */
} korvane_error;

/* Makes an object of a creatable class: "WebInterface", "BossObject", "BasicInterface". `error` may
 * be NULL here and everywhere. Every function returns one of the codes above. */
KORVANE_API int32_t korvane_create(const char* class_name, korvane_object* object,
                                   korvane_error* error);

/* Opens a database by URL (docs/database.md): an object with Execute(sql), whose result has EOF,
 * MoveNext() and Fields(name). It is what ConnDataBase, Init2 and NM_Save take. */
KORVANE_API int32_t korvane_connect(const char* url, korvane_object* connection,
                                    korvane_error* error);

/* Reads a property; `arguments` only where it has parameters. */
KORVANE_API int32_t korvane_get(korvane_object object, const char* member, korvane_value* arguments,
                                int32_t count, korvane_value* result, korvane_error* error);

/* Writes a property. */
KORVANE_API int32_t korvane_let(korvane_object object, const char* member,
                                const korvane_value* value, korvane_error* error);

/* Calls an operation. Arguments by position come first, then those by name; omitted ones take their
 * published defaults. `result` may be NULL. */
KORVANE_API int32_t korvane_call(korvane_object object, const char* member,
                                 korvane_value* arguments, int32_t count, korvane_value* result,
                                 korvane_error* error);

/* The object's class, "" for none; valid as long as the library is loaded. */
KORVANE_API const char* korvane_class(korvane_object object);

/* Gives an object back. */
KORVANE_API int32_t korvane_release(korvane_object object);

/* Frees the text of a value that the library filled and makes the value empty. An object in it is
 * not released. */
KORVANE_API void korvane_clear(korvane_value* value);

/* The object model as JSON; valid as long as the library is loaded. */
KORVANE_API const char* korvane_object_model(void);

/* How many objects are handed out and not released. */
KORVANE_API int64_t korvane_live_objects(void);

#ifdef __cplusplus
}
#endif

#endif
