"""The classes of the object model, made from the library's own description of it."""

import ctypes
import enum
import inspect
import json

from . import _library as native
from ._errors import AutomationError

_MODEL = json.loads(native.library.korvane_object_model())
_PYTHON_TYPES = {
    "int32": int, "bool": bool, "string": str, "any": object, "enumeration": int, "object": object,
}


class Ref:
    """A variable that an operation writes a result to: pass it, then read `value`."""

    __slots__ = ("value",)

    def __init__(self, value=None):
        self.value = value

    def __repr__(self):
        return f"Ref({self.value!r})"


class _FieldText(str):
    """A cell's text; `.Value` is the text itself, as pages for other languages write it."""

    Value = property(str)


class _FieldInteger(int):
    """A cell's number; `.Value` is the number itself."""

    Value = property(int)


class _FieldReal(float):
    """A cell's number; `.Value` is the number itself."""

    Value = property(float)


_FIELD_TYPES = {str: _FieldText, int: _FieldInteger, float: _FieldReal}


def _fill(value, given, kept):
    """Puts a Python value into an any-value. What the value points to is added to `kept`."""
    if isinstance(given, Ref):
        value.by_reference = 1
        given = given.value
    if given is None:
        value.type, value.object = native.OBJECT, 0
    elif isinstance(given, bool):
        value.type, value.integer = native.BOOL, given
    elif isinstance(given, int):
        if not -(2**63) <= given < 2**63:
            raise TypeError(f"{given} is too large a number")
        value.type, value.integer = native.INTEGER, given
    elif isinstance(given, float):
        value.type, value.number = native.DOUBLE, given
    elif isinstance(given, str):
        data = given.encode("utf-8", "surrogateescape")
        buffer = ctypes.create_string_buffer(data, len(data) + 1)
        kept.append(buffer)
        value.type, value.text_length = native.TEXT, len(data)
        value.text = ctypes.cast(buffer, ctypes.c_void_p).value
    elif isinstance(given, Instance):
        value.type, value.object = native.OBJECT, given._handle
    else:
        raise TypeError(f"a {type(given).__name__} is no value that can be passed")


def _take(value):
    """The Python value of an any-value that the library filled; frees its text."""
    try:
        if value.type == native.BOOL:
            return bool(value.integer)
        if value.type == native.INTEGER:
            return value.integer
        if value.type == native.DOUBLE:
            return value.number
        if value.type == native.TEXT:
            return ctypes.string_at(value.text, value.text_length).decode("utf-8", "replace")
        if value.type == native.OBJECT and value.object:
            name = native.library.korvane_class(value.object).decode()
            return _CLASSES[name]._from_handle(value.object)
        return None
    finally:
        native.library.korvane_clear(ctypes.byref(value))


def _check(status, error):
    if status == native.OK:
        return
    description = error.description.decode("utf-8", "replace")
    if status == native.BAD_ARGUMENT:
        raise TypeError(description)
    if status == native.NO_MEMBER:
        raise AttributeError(description)
    if status in (native.NO_CLASS, native.BAD_OBJECT):
        raise ValueError(description)
    raise AutomationError(error.number, error.source.decode(), description)


def _invoke(function, handle, name, positional, named):
    """Runs a member by its C function and gives back what it returns."""
    given = [(None, value) for value in positional]
    given += [(key.encode(), value) for key, value in named.items()]
    values = (native.Value * max(len(given), 1))()
    kept = []
    for value, (key, argument) in zip(values, given):
        value.name = key
        _fill(value, argument, kept)
    result, error = native.Value(), native.Error()
    status = function(handle, name.encode(), values, len(given), ctypes.byref(result),
                      ctypes.byref(error))
    _check(status, error)
    for value, (_, argument) in zip(values, given):
        if isinstance(argument, Ref):
            argument.value = _take(value)
    return _take(result)


class Instance:
    """An object of the library. It is given back when Python drops it."""

    __slots__ = ("_handle", "__weakref__")

    def __init__(self, *_):
        raise TypeError(f"make one with korvane.create({type(self).__name__!r})")

    @classmethod
    def _from_handle(cls, handle):
        self = object.__new__(cls)
        object.__setattr__(self, "_handle", handle)
        return self

    def __del__(self):
        handle = getattr(self, "_handle", 0)
        if handle and native is not None:
            native.library.korvane_release(handle)

    def __repr__(self):
        return f"<korvane.{type(self).__name__}>"

    def __dir__(self):
        return [name for name in super().__dir__() if not name.startswith("_")]


class _Collection(Instance):
    """An object with Count and ItemIndex: it has a length and is walked in that order."""

    __slots__ = ()

    def __len__(self):
        return self.Count

    def __iter__(self):
        for position in range(1, self.Count + 1):
            yield self.ItemIndex(position)

    def __bool__(self):
        # An empty page is still a page: only None is no object.
        return True


def _signature(member):
    """The member's parameters as help() shows them."""
    parameters = [inspect.Parameter("self", inspect.Parameter.POSITIONAL_ONLY)]
    for parameter in member["parameters"]:
        default = parameter.get("default", inspect.Parameter.empty)
        parameters.append(inspect.Parameter(
            parameter["name"], inspect.Parameter.POSITIONAL_OR_KEYWORD, default=default,
            annotation=_PYTHON_TYPES[parameter["type"]]))
    result = _PYTHON_TYPES.get(member["result"], None)
    return inspect.Signature(parameters, return_annotation=result)


def _describe(member):
    """One sentence for help()."""
    notes = [f"{parameter['name']}: {parameter['of']}" for parameter in member["parameters"]
             if "of" in parameter]
    notes += [f"{parameter['name']} receives a result (pass a korvane.Ref)"
              for parameter in member["parameters"] if parameter.get("receives_result")]
    result = member.get("of", member["result"])
    text = "Returns nothing." if result == "nothing" else f"Returns {result}."
    return " ".join([text] + [note + "." for note in notes])


def _method(class_name, member, function, as_field):
    def method(self, *positional, **named):
        result = _invoke(function, self._handle, member["name"], positional, named)
        return _FIELD_TYPES.get(type(result), lambda plain: plain)(result) if as_field else result

    method.__name__ = member["name"]
    method.__qualname__ = f"{class_name}.{member['name']}"
    method.__doc__ = _describe(member)
    method.__signature__ = _signature(member)
    return method


def _property(getter, setter):
    name = (getter or setter)["name"]

    def read(self):
        return _invoke(native.library.korvane_get, self._handle, name, (), {})

    def write(self, value):
        filled, error, kept = native.Value(), native.Error(), []
        _fill(filled, value, kept)
        _check(native.library.korvane_let(self._handle, name.encode(), ctypes.byref(filled),
                                          ctypes.byref(error)), error)

    kind = (getter["result"] if getter else setter["parameters"][0]["type"])
    access = "read and write" if getter and setter else "read only" if getter else "write only"
    return property(read if getter else None, write if setter else None, None, f"{kind}, {access}")


def _make_class(description):
    """A Python class with the members of one class of the model."""
    name = description["name"]
    members = {"__slots__": (), "__doc__": description["purpose"][:1].upper()
               + description["purpose"][1:] + ".", "__module__": "korvane"}
    getters, setters = {}, {}
    for member in description["members"]:
        if member["kind"] == "call":
            members[member["name"]] = _method(name, member, native.library.korvane_call, False)
        elif member["kind"] == "let":
            setters[member["name"]] = member
        elif member["parameters"]:
            members[member["name"]] = _method(name, member, native.library.korvane_get,
                                              member["result"] == "any")
        else:
            getters[member["name"]] = member
    for property_name in {**getters, **setters}:
        members[property_name] = _property(getters.get(property_name), setters.get(property_name))
    base = _Collection if "ItemIndex" in members else Instance
    return type(name, (base,), members)


_CLASSES = {description["name"]: _make_class(description)
            for description in _MODEL["classes"] + _MODEL["additional"]}


def enumerations():
    """The published enumerations as IntEnum classes."""
    return [enum.IntEnum(one["name"], [(m["name"], m["value"]) for m in one["members"]],
                         module="korvane") for one in _MODEL["enumerations"]]


def create(class_name):
    """A new object: "WebInterface", "BossObject" or "BasicInterface"."""
    handle, error = ctypes.c_uint64(), native.Error()
    _check(native.library.korvane_create(str(class_name).encode(), ctypes.byref(handle),
                                         ctypes.byref(error)), error)
    return _CLASSES[class_name]._from_handle(handle.value)


def connect(connection_string):
    """An open database, for ConnDataBase, Init2 and NM_Save: sqlite:///path/mail.db and the like."""
    if not isinstance(connection_string, str):
        raise TypeError("the connection string must be a str")
    handle, error = ctypes.c_uint64(), native.Error()
    _check(native.library.korvane_connect(connection_string.encode(), ctypes.byref(handle),
                                          ctypes.byref(error)), error)
    return _CLASSES["Connection"]._from_handle(handle.value)
