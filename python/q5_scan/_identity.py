"""The build identity that a firmware image carries.

Four texts, each ended by a NUL: "Type: " and the type, "Compiled on:", the date, the time.
"""

from __future__ import annotations

import dataclasses
import mmap
import os
import re
from typing import Tuple, Union

from ._errors import IdentityError

_MARK, _DATE_MARK = b"Type: ", b"Compiled on:\n"
_MOST = 1000  # characters of an identity
_MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split()

Image = Union[bytes, bytearray, mmap.mmap]


@dataclasses.dataclass(frozen=True)
class Identity:
    type: str
    date: str  # as in the image, such as "Jan 12 2004 10:22:33"

    @property
    def built(self) -> Tuple[int, ...]:
        """Year, month, day, hour, minute, second: the smaller one was built earlier."""
        return _parse_date(self.date)


def find_identity(image: Image, where: str = "image") -> Identity:
    """The first whole identity in the bytes; raises IdentityError when there is none."""
    problem, at = "contains no build identity", image.find(_MARK)
    first = True
    while at >= 0:
        try:
            return _take(bytes(image[at : at + _MOST + 1]))
        except ValueError as error:  # the mark may also occur in a text of the program itself
            problem, first = (str(error) if first else problem), False
        at = image.find(_MARK, at + len(_MARK))
    advice = 'An image carries "Type: ...", "Compiled on:", a date and a time, each ended by a NUL.'
    raise IdentityError(problem, where, advice)


def read_identity(path: Union[str, "os.PathLike[str]"]) -> Identity:
    """The first whole identity in a file of any size; raises IdentityError, or OSError."""
    with open(path, "rb") as file:
        if os.fstat(file.fileno()).st_size == 0:
            return find_identity(b"", str(path))  # which says that there is none
        with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as image:
            return find_identity(image, str(path))


def _take(text: bytes) -> Identity:
    version = b"\n".join(text.split(b"\0")[:4])
    if len(version) > _MOST:
        raise ValueError('has "Type: ", but no build identity after it')
    if _DATE_MARK not in version:
        raise ValueError("has a type, but no build date")
    type = version[len(_MARK) :].split(b"\n")[0]
    date = b" ".join(version.split(_DATE_MARK, 1)[1].split(b"\n")[:2])
    found = Identity(*(part.decode("utf-8", "surrogateescape") for part in (type, date)))
    _parse_date(found.date)
    return found


def _parse_date(date: str) -> Tuple[int, ...]:
    """Raises ValueError unless all six parts are there; the time may be any number."""
    parts = re.findall("[^ :\n]+", date)[:6]
    month = _MONTHS.index(parts[0]) + 1 if parts and parts[0] in _MONTHS else 0
    day, year, *time = [_number(part) for part in parts[1:]] + [0] * (6 - len(parts))
    if len(parts) < 6 or not (month and day and year):
        raise ValueError(f"has an invalid build date: {date!r}")
    return (year, month, day, *time)


def _number(text: str) -> int:
    """As the chassis's own reader converts it: digits up to the first other character."""
    digits = re.match("[0-9]*", text)
    return min(int(digits[0] or "0"), 2**31 - 1) if digits else 0
