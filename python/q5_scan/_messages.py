"""Typed messages."""

from __future__ import annotations

import dataclasses
import math
import struct
from typing import Dict, List, Mapping, Sequence, Union

from ._errors import UsageError
from ._limits import MAX_RX

_NUMBERS = {"byte": ">B", "sbyte": ">b", "short": ">H", "sshort": ">h", "int": ">i", "uint": ">I"}
_OTHERS = ("string", "bytes", "rest")


@dataclasses.dataclass(frozen=True)
class Type:
    """The type of a field: byte, sbyte, short, sshort, int or uint, big-endian; string, up to
    its NUL; bytes, `size` of them; or rest, all that is left."""

    kind: str
    size: int = 0
    scale: float = 1  # what a number is multiplied by
    name: str = ""

    def __post_init__(self) -> None:
        if self.kind not in _NUMBERS and self.kind not in _OTHERS:
            kinds = ", ".join([*_NUMBERS, *_OTHERS])
            raise UsageError(f"'{self.kind}' is not a type", "types", f"The types are {kinds}.")


# By letter: the types of its first field in a message, its second, and so on; the last one is for
# all that follow. A letter without a type ends the decoding.
Types = Mapping[str, Sequence[Type]]

USUAL_TYPES: Types = {
    "b": [Type("byte")],
    "h": [Type("short")],
    "i": [Type("int")],
    "s": [Type("string")],
    "x": [Type("rest")],
}


def parse_types(text: str) -> Types:
    """Reads what `q5_scan --types` reads: "LETTER[N]=TYPE[*SCALE][:NAME],..."."""
    types: Dict[str, List[Type]] = {}
    for entry in map(str.strip, text.split(",")):
        try:
            equals = entry.index("=", 1)
            fields = types.setdefault(entry[0], [])
            at = int(entry[1:equals] or "1")
            made = _parse_type(entry[equals + 1 :])
            if not len(fields) < at <= 127:
                raise ValueError
        except ValueError as error:
            if isinstance(error, UsageError):
                raise
            raise UsageError(
                f"'{entry}' is not LETTER=TYPE, or given twice",
                "types",
                "Give them like this: A=int,B=sshort*0.1:celsius,C=bytes:4",
            ) from None
        fields += [fields[-1] if fields else made] * (at - 1 - len(fields)) + [made]
    return types


def _parse_type(text: str) -> Type:
    if text.endswith(":"):
        raise ValueError
    if text.startswith("bytes:"):
        size, _, name = text[6:].partition(":")
        if not 0 <= int(size) <= MAX_RX:
            raise ValueError
        return Type("bytes", int(size), name=name)
    front, _, name = text.partition(":")
    kind, star, scale = front.partition("*")
    factor = float(scale) if star else 1
    if star and (kind not in _NUMBERS or not math.isfinite(factor)):
        raise ValueError
    return Type(kind, scale=factor, name=name)


Value = Union[int, float, str, bytes]


@dataclasses.dataclass(frozen=True)
class Field:
    letter: str
    type: Type
    value: Value  # a number, scaled; a text, in which bytes that are not UTF-8 are surrogates; bytes

    def text(self) -> str:
        """The value as text: bytes in hex, and what a terminal must not get as an escape."""
        if isinstance(self.value, bytes):
            return self.value.hex(" ")
        if isinstance(self.value, str):
            return "".join(c if c.isprintable() else c.encode("unicode_escape").decode() for c in self.value)
        return f"{self.value:.15g}"


@dataclasses.dataclass(frozen=True)
class Message:
    """Letters, fields and what is left are the whole message, whatever is wrong with it."""

    letters: str
    fields: Sequence[Field]
    left: bytes  # payload after the last field
    problem: str  # why the fields end early; "" when they do not

    def values(self) -> List[Value]:
        return [field.value for field in self.fields]

    def __getitem__(self, name: str) -> Value:
        """The first field of that name."""
        for field in self.fields:
            if field.type.name == name:
                return field.value
        raise KeyError(name)


def decode(data: bytes, types: Types = USUAL_TYPES) -> Message:
    """Decodes a typed message as far as it is sound; no bytes give an empty one."""
    if not data:
        return Message("", [], b"", "")
    num_letters, after = data[0], len(data) - 1
    if num_letters > min(after, 127):  # a count above 127 is negative to the cards' reader
        problem = f"it announces {num_letters} letters, bytes after that: {after}"
        return Message("", [], data[1:], problem)
    letters = data[1 : 1 + num_letters].decode("latin-1")
    payload, fields, problem = data[1 + num_letters :], [], ""
    for index, letter in enumerate(letters):
        known = types.get(letter)
        if not known:
            problem = f"letter {_shown(letter)} has no type"
            break
        type = known[min(letters.count(letter, 0, index), len(known) - 1)]
        size = _size_of(type, payload)
        if size > len(payload):
            shown = f"letter {_shown(letter)}"
            is_text = type.kind == "string"
            problem = f"the string of {shown} has no terminating NUL" if is_text else ""
            problem = problem or f"{shown} runs past the end of the payload"
            break
        fields.append(Field(letter, type, _value_of(type, payload[:size])))
        payload = payload[size:]
    return Message(letters, fields, payload, problem)


def _shown(letter: str) -> str:
    return letter if " " <= letter <= "~" else f"\\x{ord(letter):02x}"


def _size_of(type: Type, payload: bytes) -> int:
    if type.kind in _NUMBERS:
        return struct.calcsize(_NUMBERS[type.kind])
    if type.kind == "string":
        at = payload.find(0)
        return at + 1 if at >= 0 else len(payload) + 1
    return type.size if type.kind == "bytes" else len(payload)


def _value_of(type: Type, data: bytes) -> Value:
    if type.kind in _NUMBERS:
        number: int = struct.unpack(_NUMBERS[type.kind], data)[0]
        return number if type.scale == 1 else float(f"{number * type.scale:.15g}")
    if type.kind == "string":
        return data[:-1].decode("utf-8", "surrogateescape")
    return data


