// Values between automation and the component.
//
// What comes in, itself or by reference (a variable, a variable in a variable, an element of an
// array): numbers of every width, currency and decimal are numbers, a whole one stays whole; a date
// is the text dd/mm/yyyy hh:mm:ss; an array of bytes is the text that they are, UTF-8 or the code
// page; a text's lone surrogates become U+FFFD. An object that is not the component's own is a
// database connection if it has the name Execute, else what its default property says. Other arrays
// and records are a mistake.
//
// What goes out is empty, null, a boolean, a 32-bit number (a double beyond), a double, a text or
// an object.
#pragma once

#include <oaidl.h>

#include <optional>
#include <string>

#include "frame/any.h"
#include "frame/object_model.h"
#include "variant.h"

namespace korvane::com {

/// The variable behind references to variables; none when it cannot be reached.
const VARIANT* Behind(const VARIANT& value);

/// An omitted argument.
bool IsMissing(const VARIANT& value);

/// Throws ArgumentError.
Any FromVariant(const VARIANT& value, model::Type wanted);

/// `of` is the class of an object.
Variant ToVariant(const Any& value, const model::Class* of);

/// Stores a value in the variable that an argument refers to, in that variable's own type. An
/// argument that refers to nothing is left alone. What it returns is automation's status.
HRESULT PutBack(const VARIANT& argument, const Any& value);

/// "dd/mm/yyyy hh:mm:ss" or "mm/dd/yyyy hh:mm:ss", nothing when it is no date.
std::optional<std::string> DateText(DATE date, bool month_first);
/// A text of that form as a date, nothing when it is none or before the year 100, where automation
/// has none.
std::optional<DATE> DateOf(const std::string& text, bool month_first);

}  // namespace korvane::com
