"""Requests as values, and a batch of them as bytes."""

from __future__ import annotations

import dataclasses
import struct
from typing import Optional, Sequence

from ._errors import RequestError, UsageError
from ._limits import CLAIM, MAX_REQUESTS, MAX_RX, MAX_SHORT, MAX_TX, NUM_SLOTS, RELEASE, SHORT_MESSAGE
from ._messages import USUAL_TYPES, Message, Types, decode
from ._results import Meaning, describe, slot_exists


@dataclasses.dataclass
class Request:
    """One request of a batch; `rxlen` bytes are wanted back: by default 4096, which is the most, and
    none for claim and release."""

    slot: int
    command: int
    tx: bytes = b""
    rxlen: Optional[int] = None
    # Results, reset at the start of each exchange.
    result: Optional[int] = None  # bytes received, or less than 0; None: not answered
    rx: bytes = b""  # min (result, rxlen) bytes

    def wanted(self) -> int:
        if self.rxlen is None:
            return 0 if self.command in (CLAIM, RELEASE) else MAX_RX
        return self.rxlen

    def meaning(self) -> Meaning:
        if self.result is None:
            return Meaning("not answered", "no reply came", "why the exchange ended")
        return describe(self.result, self.command)

    def is_empty(self) -> bool:
        """Answered, and nothing is there: no card, a silent one, or a slot that does not exist."""
        return self.result == -3 or (self.result == -2 and not slot_exists(self.slot))

    def is_damaged(self) -> bool:
        """Answered with any other failure."""
        return self.result is not None and self.result < 0 and not self.is_empty()

    def data(self) -> bytes:
        """The received bytes; raises RequestError when the request failed."""
        least = 1 if self.command in (CLAIM, RELEASE) else 0
        if self.result is None or self.result < least:
            m = self.meaning()
            where = f"slot {self.slot} command {self.command}"
            raise RequestError(m.meaning, where, f"Check {m.look_at}.", self.result or 0)
        return self.rx


def claim_request() -> Request:
    return Request(0, CLAIM)


def release_request() -> Request:
    return Request(0, RELEASE)


def short_request(slot: int, first: int, second: int, data: bytes = b"") -> Request:
    """The short message: two bytes, and up to 27 more."""
    if len(data) > MAX_SHORT or not (0 <= first <= 255 and 0 <= second <= 255):
        raise UsageError(
            "a short message is two bytes and at most 27 more",
            f"slot {slot}",
            "Send more with a Request of your own.",
        )
    return Request(slot, SHORT_MESSAGE, bytes([first, second]) + data, 0)


@dataclasses.dataclass
class Reading:
    """What a slot says about itself."""

    typed: Request
    raw: Request

    def message(self, types: Types = USUAL_TYPES) -> Message:
        """Its typed message; raises RequestError when it has none."""
        return decode(self.typed.data(), types)


def is_word(value: object) -> bool:
    """Whether it is a signed 32-bit integer."""
    return isinstance(value, int) and -(2**31) <= value < 2**31


def _fault_of(request: Request) -> str:
    if not is_word(request.slot) or not 0 <= request.slot < NUM_SLOTS:
        return f"slot {request.slot!r} is not 0 to {NUM_SLOTS - 1}"
    if not is_word(request.wanted()) or not 0 <= request.wanted() <= MAX_RX:
        return f"rxlen {request.wanted()!r} is not 0 to {MAX_RX}"
    if not is_word(request.command):
        return f"command {request.command!r} is not a signed 32-bit integer"
    if not isinstance(request.tx, (bytes, bytearray)):
        return f"tx is not bytes, but {type(request.tx).__name__}"
    return ""


def encode(id: int, requests: Sequence[Request]) -> bytes:
    """The batch as it is sent; raises UsageError for one that the daemon would refuse."""
    if not is_word(id):
        raise UsageError(f"id {id!r} is not a signed 32-bit integer", "batch", "Choose another.")
    if not 1 <= len(requests) <= MAX_REQUESTS:
        what = f"{len(requests)} requests are not 1 to {MAX_REQUESTS}"
        raise UsageError(what, "batch", "Make several batches.")
    for number, request in enumerate(requests, 1):
        fault = _fault_of(request)
        if fault:
            raise UsageError(fault, f"request {number}", "Nothing was sent: correct it.")
    tx = b"".join(request.tx for request in requests)
    if len(tx) > MAX_TX:
        what = f"{len(tx)} bytes to transmit are more than {MAX_TX}"
        raise UsageError(what, "batch", "Make several batches.")
    headers = [
        struct.pack(">iiii", request.slot, request.command, request.wanted(), len(request.tx))
        for request in requests
    ]
    return struct.pack(">ii", id, len(requests)) + b"".join(headers) + tx
