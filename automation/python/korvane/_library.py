"""Finds and loads the shared library and declares its C functions (korvane_automation.h)."""

import ctypes
import ctypes.util
import os
import pathlib

_NAMES = ("libkorvane.so", "libkorvane.so.0", "Korvane_beta1.dll")

EMPTY, NULL, BOOL, INTEGER, DOUBLE, TEXT, OBJECT, MISSING = range(8)
OK, RAISED, NO_MEMBER, BAD_ARGUMENT, BAD_OBJECT, NO_CLASS, NO_CONNECTION = range(7)


class Value(ctypes.Structure):
    _fields_ = [
        ("name", ctypes.c_char_p),
        ("type", ctypes.c_int32),
        ("by_reference", ctypes.c_int32),
        ("integer", ctypes.c_int64),
        ("number", ctypes.c_double),
        ("text", ctypes.c_void_p),
        ("text_length", ctypes.c_int64),
        ("object", ctypes.c_uint64),
    ]


class Error(ctypes.Structure):
    _fields_ = [
        ("number", ctypes.c_int32),
        ("source", ctypes.c_char * 64),
        ("description", ctypes.c_char * 448),
    ]


def _candidates():
    """Where the library may be, best first."""
    named = os.environ.get("KORVANE_LIBRARY")
    if named:
        # What the user names is the only choice: another version would be a surprise.
        path = pathlib.Path(named)
        yield from ([path / name for name in _NAMES] if path.is_dir() else [path])
        return
    here = pathlib.Path(__file__).resolve().parent
    for folder in (here, here.parent):
        for name in _NAMES:
            if (folder / name).exists():
                yield folder / name
    if len(here.parents) > 2:
        checkout = here.parents[2]
        built = [path for name in _NAMES for path in checkout.glob(f"build/*/lib/{name}")]
        yield from sorted(built, key=lambda path: path.stat().st_mtime, reverse=True)
    found = ctypes.util.find_library("korvane")
    yield from ([found] if found else [])
    yield from _NAMES


def _load():
    reasons = []
    for candidate in _candidates():
        try:
            return ctypes.CDLL(str(candidate))
        except OSError as error:
            reasons.append(f"{candidate}: {error}")
    raise ImportError(
        "the library libkorvane.so was not found; build it (cmake --preset release, cmake --build "
        "--preset release) or name it in $KORVANE_LIBRARY.\n" + "\n".join(reasons)
    )


def _declare(loaded):
    """Types of arguments and results, as the C header has them."""
    status, text = ctypes.c_int32, ctypes.c_char_p
    handle, value, error = ctypes.c_uint64, ctypes.POINTER(Value), ctypes.POINTER(Error)
    member = [handle, text, value, ctypes.c_int32, value, error]
    for name, result, arguments in (
        ("korvane_create", status, [text, ctypes.POINTER(handle), error]),
        ("korvane_connect", status, [text, ctypes.POINTER(handle), error]),
        ("korvane_get", status, member),
        ("korvane_let", status, [handle, text, value, error]),
        ("korvane_call", status, member),
        ("korvane_class", text, [handle]),
        ("korvane_release", status, [handle]),
        ("korvane_clear", None, [value]),
        ("korvane_object_model", text, []),
        ("korvane_live_objects", ctypes.c_int64, []),
    ):
        function = getattr(loaded, name)
        function.restype = result
        function.argtypes = arguments
    return loaded


library = _declare(_load())
