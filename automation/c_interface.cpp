// The C interface. No exception leaves it, and no handle is followed before it was found.
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "arguments.h"
#include "bindings.h"
#include "facade/automation_exception.h"
#include "frame/code_page.h"
#include "frame/database.h"
#include "handles.h"
#include "korvane_automation.h"

namespace {

using korvane::Any;
using korvane::Object;
using namespace korvane::automation;
namespace model = korvane::model;

/// What automation clients see for a fault that has no number of its own.
constexpr int32_t kUnspecifiedFault = static_cast<int32_t>(0x80004005);

template <size_t N>
void CopyCut(char (&to)[N], std::string_view text) {
  text = text.substr(0, text.find('\0'));
  size_t length = std::min(text.size(), N - 1);
  // A cut inside a character would leave half of it.
  if (length < text.size()) {
    while (length > 0 && (text[length] & 0xc0) == 0x80) --length;
  }
  std::memcpy(to, text.data(), length);
  to[length] = '\0';
}

int32_t Fail(korvane_error* error, int32_t code, int32_t number, std::string_view source,
             std::string_view description) {
  if (error) {
    error->number = number;
    CopyCut(error->source, source);
    CopyCut(error->description, description);
  }
  return code;
}

Any FromValue(const korvane_value& value) {
  switch (value.type) {
    case KORVANE_EMPTY:
    case KORVANE_MISSING:
      return {};
    case KORVANE_NULL:
      return nullptr;
    case KORVANE_BOOL:
      return value.integer != 0;
    case KORVANE_INTEGER:
      return value.integer;
    case KORVANE_DOUBLE:
      return value.number;
    case KORVANE_TEXT: {
      if (!value.text) return "";
      const size_t length =
          value.text_length < 0 ? std::strlen(value.text) : static_cast<size_t>(value.text_length);
      return korvane::ToUtf8(std::string(value.text, length));
    }
    case KORVANE_OBJECT: {
      if (value.object == 0) return std::shared_ptr<Object>();
      auto found = Handles::Instance().Find(value.object);
      if (!found.object) throw ArgumentError("an argument is an object that is not there");
      return found.object;
    }
    default:
      throw ArgumentError("an argument is of no known type");
  }
}

/// Fills a value that the caller will clear. `of` is the class of an object result.
void ToValue(const Any& from, const model::Class* of, korvane_value& to) {
  to = korvane_value{};
  std::visit(
      [&](const auto& held) {
        using T = std::decay_t<decltype(held)>;
        if constexpr (std::is_same_v<T, std::monostate>) {
          to.type = KORVANE_EMPTY;
        } else if constexpr (std::is_same_v<T, Any::Null>) {
          to.type = KORVANE_NULL;
        } else if constexpr (std::is_same_v<T, bool>) {
          to.type = KORVANE_BOOL;
          to.integer = held ? 1 : 0;
        } else if constexpr (std::is_same_v<T, int64_t>) {
          to.type = KORVANE_INTEGER;
          to.integer = held;
        } else if constexpr (std::is_same_v<T, double>) {
          to.type = KORVANE_DOUBLE;
          to.number = held;
        } else if constexpr (std::is_same_v<T, std::string>) {
          to.type = KORVANE_TEXT;
          auto* text = static_cast<char*>(std::malloc(held.size() + 1));
          if (!text) throw std::bad_alloc();
          std::memcpy(text, held.c_str(), held.size() + 1);
          to.text = text;
          to.text_length = static_cast<int64_t>(held.size());
        } else {
          to.type = KORVANE_OBJECT;
          if (held && of) to.object = Handles::Instance().Add(held, *of);
        }
      },
      from.value());
}

/// Everything that a member may throw, as a code and an error.
template <class Body>
int32_t Guarded(std::string_view source, korvane_error* error, Body body) {
  if (error) *error = korvane_error{};
  try {
    return body();
  } catch (const korvane::AutomationException& raised) {
    return Fail(error, KORVANE_RAISED, raised.number(), raised.source(), raised.what());
  } catch (const ArgumentError& mistake) {
    return Fail(error, KORVANE_BAD_ARGUMENT, 0, source, mistake.what());
  } catch (const std::exception& fault) {
    return Fail(error, KORVANE_RAISED, kUnspecifiedFault, source, fault.what());
  }
}

int32_t Run(korvane_object object, model::Kind kind, const char* name, korvane_value* values,
            int32_t count, korvane_value* result, korvane_error* error) {
  if (result) *result = korvane_value{};
  const Handles::Entry self = Handles::Instance().Find(object);
  if (!self.object) {
    return Fail(error, KORVANE_BAD_OBJECT, 0, "", "the object was released or never existed");
  }
  const std::string_view member_name = name ? name : "";
  return Guarded(self.type->name, error, [&]() -> int32_t {
    const model::Member* member = model::FindMember(*self.type, member_name, kind);
    const Invoke invoke = member ? FindBinding(*self.type, *member) : nullptr;
    if (!invoke) {
      return Fail(error, KORVANE_NO_MEMBER, 0, self.type->name,
                  std::string(self.type->name) + " has no member '" + std::string(member_name) +
                      "' of that kind");
    }
    if (count < 0 || (count > 0 && !values)) throw ArgumentError("the arguments are not there");
    std::vector<Argument> arguments(count);
    for (int32_t i = 0; i < count; ++i) {
      arguments[i].name = values[i].name ? values[i].name : "";
      arguments[i].missing = values[i].type == KORVANE_MISSING;
      arguments[i].value = FromValue(values[i]);
    }
    MatchedArguments matched = Match(*member, arguments);
    const Any returned = invoke(*self.object, matched.values);
    for (size_t i = 0; i < matched.values.size(); ++i) {
      const int32_t from = matched.passed_from[i];
      if (from < 0 || !values[from].by_reference) continue;
      const char* kept_name = values[from].name;
      ToValue(matched.values[i], nullptr, values[from]);
      values[from].name = kept_name;
      values[from].by_reference = 1;
    }
    if (result) ToValue(returned, FindClass(member->result_of), *result);
    return KORVANE_OK;
  });
}

}  // namespace

extern "C" {

int32_t korvane_create(const char* class_name, korvane_object* object, korvane_error* error) {
  if (!object) return Fail(error, KORVANE_BAD_ARGUMENT, 0, "", "no place for the object");
  *object = 0;
  const std::string_view name = class_name ? class_name : "";
  return Guarded(name, error, [&]() -> int32_t {
    auto made = Create(name);
    if (!made) {
      return Fail(error, KORVANE_NO_CLASS, 0, "",
                  "'" + std::string(name) + "' is no class that can be created");
    }
    *object = Handles::Instance().Add(std::move(made), *FindClass(name));
    return KORVANE_OK;
  });
}

int32_t korvane_connect(const char* url, korvane_object* connection, korvane_error* error) {
  if (!connection) return Fail(error, KORVANE_BAD_ARGUMENT, 0, "", "no place for the object");
  *connection = 0;
  return Guarded("Connection", error, [&]() -> int32_t {
    try {
      *connection =
          Handles::Instance().Add(korvane::OpenDatabase(url ? url : ""), ConnectionClass());
      return KORVANE_OK;
    } catch (const korvane::DatabaseError& fault) {
      return Fail(error, KORVANE_NO_CONNECTION, kUnspecifiedFault, "Connection", fault.what());
    }
  });
}

int32_t korvane_get(korvane_object object, const char* member, korvane_value* arguments,
                    int32_t count, korvane_value* result, korvane_error* error) {
  return Run(object, model::Kind::kGet, member, arguments, count, result, error);
}

int32_t korvane_let(korvane_object object, const char* member, const korvane_value* value,
                    korvane_error* error) {
  if (!value) return Fail(error, KORVANE_BAD_ARGUMENT, 0, "", "no value to write");
  korvane_value one = *value;
  one.name = nullptr;
  one.by_reference = 0;
  return Run(object, model::Kind::kLet, member, &one, 1, nullptr, error);
}

int32_t korvane_call(korvane_object object, const char* member, korvane_value* arguments,
                     int32_t count, korvane_value* result, korvane_error* error) {
  return Run(object, model::Kind::kCall, member, arguments, count, result, error);
}

const char* korvane_class(korvane_object object) {
  const auto found = Handles::Instance().Find(object);
  // The names of the model are literals, so each ends in a NUL.
  return found.type ? found.type->name.data() : "";
}

int32_t korvane_release(korvane_object object) {
  try {
    return Handles::Instance().Release(object) ? KORVANE_OK : KORVANE_BAD_OBJECT;
  } catch (const std::exception&) {
    return KORVANE_RAISED;
  }
}

void korvane_clear(korvane_value* value) {
  if (!value) return;
  // Only texts that ToValue made come here: the header gives the caller's own texts back to him.
  if (value->type == KORVANE_TEXT) std::free(const_cast<char*>(value->text));
  *value = korvane_value{};
}

const char* korvane_object_model(void) {
  static const std::string model = model::ToJson(DatabaseClasses());
  return model.c_str();
}

int64_t korvane_live_objects(void) { return static_cast<int64_t>(Handles::Instance().size()); }

}  // extern "C"
