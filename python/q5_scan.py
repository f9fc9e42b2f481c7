"""Talk to the cards of a chassis through its daemon, q5_scand.

    import q5_scan

    client = q5_scan.Client("chassis-4")
    for slot, reading in client.fetch([3, 7]).items():
        print(slot, reading.message().values())

    with client.claim() as mine:  # nobody else's batches in between
        [answer] = mine.exchange([q5_scan.Request(12, 147, b"\x01\x02")])
        print(answer.data())

Every exchange is one connection and one batch, bounded in time, and leaves no socket open. What
goes wrong is an exception below Error, which tells what, where and what to do; a card that fails is
no exception but a result of less than 0 in its Request, until data() is asked of it. Objects may be
used by several threads as long as each thread has requests of its own.
"""

from __future__ import annotations

import contextlib
import dataclasses
import math
import os
import socket
import struct
import time
from typing import Dict, Iterable, Iterator, List, Mapping, Optional, Sequence, Union

PORT = 1971
CLAIM, RELEASE = 1, 2
TYPED_MESSAGE, RAW_BLOCK, SHORT_MESSAGE = 51, 83, 147
NUM_SLOTS = 32
MAX_REQUESTS = 100  # of a batch
MAX_TX = 4094  # bytes to transmit, all requests of a batch together
MAX_RX = 4096  # bytes wanted back, each request
MAX_SHORT = 27  # bytes of a short message behind its first two


# What may go wrong


class Error(Exception):
    """`what` happened, `where`, and `advice` on what to do."""

    def __init__(self, what: str, where: str, advice: str) -> None:
        super().__init__(f"{where}: {what}. {advice}")
        self.what, self.where, self.advice = what, where, advice


class UsageError(Error, ValueError):
    """The daemon would refuse this; nothing was sent."""


class NetworkError(Error):
    """The batch was not answered as a whole.

    The first `num_replies` requests hold their results. Those behind them may have run or not.
    """

    num_replies = 0


class UnknownHostError(NetworkError):
    """The name does not resolve."""


class ConnectError(NetworkError):
    """There is no connection; nothing was sent."""


class DroppedError(NetworkError):
    """The daemon closed the connection without an answer: as a rule another id holds the bus."""


class BrokenOffError(NetworkError):
    """The connection ended in the middle of the replies."""


class TimedOutError(NetworkError, TimeoutError):
    """A time-out has passed, for the connection, a reply or the whole."""


class RequestError(Error):
    """A card failed, or a claim was refused; `result` tells how."""

    def __init__(self, what: str, where: str, advice: str, result: int) -> None:
        super().__init__(what, where, advice)
        self.result = result


# Results in words


@dataclasses.dataclass(frozen=True)
class Meaning:
    state: str  # in a few words, for a table
    meaning: str  # what happened
    look_at: str  # where to look for the reason; "" when nothing is wrong


_MEANINGS = {
    -1: Meaning(
        "line error",
        "the answer came damaged: a break, a framing error, an overrun, noise, or no address "
        "character before it",
        "the bus cabling, and the bit rate of the card (slots 23 and 24 run at a fifth of the "
        "rate of the others)",
    ),
    -2: Meaning(
        "no such slot, or line low",
        "the slot does not exist, or its receive line is held low",
        "the slot number (21, 22, 25, 26 and 31 do not exist), then a card in it that holds the "
        "line low",
    ),
    -3: Meaning(
        "no card, or silent",
        "the request went out, and no complete answer came within 110 ms",
        "whether a card is plugged in, has power and knows this command",
    ),
    -4: Meaning(
        "wrong address",
        "the answer came to the second address (0xA5), or a length was beyond its limit",
        "the address that the card answers to: it must be 0x5A",
    ),
    -10: Meaning(
        "not sent",
        "the request was not completely sent within 110 ms",
        "a card that holds up the transmitter, the clock of the bus, and in slots 23 and 24 the "
        "length: about 1600 bytes go out in that time",
    ),
}


def describe(result: int, command: int = 0) -> Meaning:
    """The result of an answered request: claim and release have results of their own."""
    if command in (CLAIM, RELEASE):
        if result <= 0:
            return Meaning(
                "refused",
                "another id holds the bus",
                "which program holds the bus: it must release it first",
            )
        return Meaning("ok", "the bus is claimed" if command == CLAIM else "the bus is free", "")
    if result >= 0:
        return Meaning("ok", f"the slot answered with {result} bytes", "")
    return _MEANINGS.get(result) or Meaning(
        f"unknown result {result}",
        "a result that this program does not know",
        "whether the daemon is a q5_scand of another version",
    )


# Typed messages

_NUMBERS = {"byte": ">B", "sbyte": ">b", "short": ">H", "sshort": ">h", "int": ">i", "uint": ">I"}
_OTHERS = ("string", "bytes", "rest")


@dataclasses.dataclass(frozen=True)
class Type:
    """What a letter stands for: byte, sbyte, short, sshort, int or uint, big-endian; string, up to
    its NUL; bytes, `size` of them; or rest, all that is left."""

    kind: str
    size: int = 0
    scale: float = 1  # what a number is multiplied by
    name: str = ""

    def __post_init__(self) -> None:
        if self.kind not in _NUMBERS and self.kind not in _OTHERS:
            kinds = ", ".join([*_NUMBERS, *_OTHERS])
            raise UsageError(f"'{self.kind}' is no type", "types", f"The types are {kinds}.")


# By letter, for its first field in a message, its second, and so on; the last one stands for all
# that follow. A letter without a type ends the decoding.
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
    value: Value  # a number, scaled; a text, in which bytes that are no UTF-8 are surrogates; bytes


@dataclasses.dataclass(frozen=True)
class Message:
    """Letters, fields and what is left are the whole message, whatever is wrong with it."""

    letters: str
    fields: Sequence[Field]
    left: bytes  # payload behind the last field
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
    """Takes a typed message apart, as far as it is sound; nothing gives an empty one."""
    if not data:
        return Message("", [], b"", "")
    num_letters, behind = data[0], len(data) - 1
    if num_letters > min(behind, 127):  # a count above 127 is negative to the cards' reader
        problem = f"it announces {num_letters} letters, and has {behind} bytes behind that"
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
            problem = f"the text of {shown} has no end" if is_text else ""
            problem = problem or f"{shown} reaches beyond the payload"
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


# Batches


@dataclasses.dataclass
class Request:
    """One request of a batch; `rxlen` bytes are wanted back, by default all that there are, and of
    the daemon itself none."""

    slot: int
    command: int
    tx: bytes = b""
    rxlen: Optional[int] = None
    # What an exchange leaves: nothing of an exchange before.
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

    def data(self) -> bytes:
        """The received bytes; raises RequestError when the request failed."""
        if self.result is None or self.result < 0:
            m = self.meaning()
            where = f"slot {self.slot} command {self.command}"
            raise RequestError(m.meaning, where, f"Look at: {m.look_at}.", self.result or 0)
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


def _word_is_off(value: int) -> bool:
    return not -(2**31) <= value < 2**31


def _fault_of(request: Request) -> str:
    if not 0 <= request.slot < NUM_SLOTS:
        return f"slot {request.slot} is not 0 to {NUM_SLOTS - 1}"
    if not 0 <= request.wanted() <= MAX_RX:
        return f"rxlen {request.wanted()} is not 0 to {MAX_RX}"
    if _word_is_off(request.command):
        return f"command {request.command} is no signed 32-bit number"
    return ""


def encode(id: int, requests: Sequence[Request]) -> bytes:
    """The batch as it goes out; raises UsageError for one that the daemon would refuse."""
    if _word_is_off(id):
        raise UsageError(f"id {id} is no signed 32-bit number", "batch", "Choose another.")
    if not 1 <= len(requests) <= MAX_REQUESTS:
        what = f"{len(requests)} requests are not 1 to {MAX_REQUESTS}"
        raise UsageError(what, "batch", "Make several batches.")
    for number, request in enumerate(requests, 1):
        fault = _fault_of(request)
        if fault:
            raise UsageError(fault, f"request {number}", "Nothing was sent: put it right.")
    tx = b"".join(request.tx for request in requests)
    if len(tx) > MAX_TX:
        what = f"{len(tx)} bytes to transmit are more than {MAX_TX}"
        raise UsageError(what, "batch", "Make several batches.")
    headers = [
        struct.pack(">iiii", request.slot, request.command, request.wanted(), len(request.tx))
        for request in requests
    ]
    return struct.pack(">ii", id, len(requests)) + b"".join(headers) + tx


@dataclasses.dataclass(frozen=True)
class Client:
    """Whom to talk to, as whom, and for how long: seconds, or None for no limit.

    `connect_timeout` counts until the connection stands (but for the resolving of a name, which the
    system bounds); `reply_timeout` from there until the first reply is whole, and then from each
    whole reply to the next; `timeout` the whole exchange. Before the first reply the daemon
    finishes the batches of those who came earlier. Every program that chooses no `id` is 2.
    """

    host: str = "127.0.0.1"
    port: int = PORT
    id: int = 2
    connect_timeout: Optional[float] = 10
    reply_timeout: Optional[float] = 30
    timeout: Optional[float] = None

    def exchange(self, requests: Iterable[Request]) -> List[Request]:
        """Sends the requests as one batch and fills in results and data.

        Returns them. Raises UsageError before anything is sent, or NetworkError.
        """
        batch = list(requests)
        out = encode(self.id, batch)
        for request in batch:
            request.result, request.rx = None, b""
        exchange = _Exchange(self)
        try:
            exchange.run(out, batch)
        except NetworkError as error:
            error.num_replies = sum(request.result is not None for request in batch)
            raise
        return batch

    def request(
        self, slot: int, command: int, tx: bytes = b"", rxlen: Optional[int] = None
    ) -> bytes:
        """Runs one request and returns what came back; raises RequestError when it failed."""
        return self.exchange([Request(slot, command, tx, rxlen)])[0].data()

    def fetch(self, slots: Iterable[int] = range(NUM_SLOTS)) -> Dict[int, Reading]:
        """The typed message and the raw block of the slots, in one batch."""
        chosen = sorted(set(slots))
        typed = [Request(slot, TYPED_MESSAGE) for slot in chosen]
        raw = [Request(slot, RAW_BLOCK) for slot in chosen]
        self.exchange(typed + raw)
        return {t.slot: Reading(t, r) for t, r in zip(typed, raw)}

    @contextlib.contextmanager
    def claim(self, wait: float = 0) -> Iterator[Client]:
        """Holds the bus: yields a client under a fresh id, whose batches alone are served.

        Tries again for `wait` seconds while another id holds it, then raises DroppedError. The bus
        is released whatever happens; when that fails, and nothing else has, the reason is raised.
        """
        holder = dataclasses.replace(self, id=_fresh_id())
        try:
            holder._take_bus(wait)
        except (DroppedError, ConnectError, UnknownHostError, RequestError, UsageError):
            raise  # it was never held
        except BaseException:
            holder._try_release()
            raise
        try:
            yield holder
        except BaseException:
            holder._try_release()
            raise
        holder.exchange([release_request()])[0].data()

    def _take_bus(self, wait: float) -> None:
        end = time.monotonic() + wait
        while True:
            try:
                self.exchange([claim_request()])[0].data()
                return
            except DroppedError:
                left = end - time.monotonic()
                if left <= 0:
                    raise
                time.sleep(min(left, 0.1))


    def _try_release(self) -> None:
        with contextlib.suppress(Error):
            self.exchange([release_request()])


def _fresh_id() -> int:
    """Not 0, which cannot hold the bus, and not 2, which is everybody's."""
    while True:
        id = int.from_bytes(os.urandom(4), "big", signed=True)
        if id not in (0, 2):
            return id


class _Exchange:
    """One connection, and how much of its time is left."""

    def __init__(self, client: Client) -> None:
        self.client = client
        self.where = f"{client.host} port {client.port}"
        self.end = self.after(client.timeout)

    @staticmethod
    def after(seconds: Optional[float]) -> float:
        return math.inf if seconds is None else time.monotonic() + seconds

    def run(self, out: bytes, batch: Sequence[Request]) -> None:
        with self.connected() as connection:
            until = self.after(self.client.reply_timeout)
            self.send(connection, out, until)
            for request in batch:
                self.receive_reply(connection, request, until, request is batch[0])
                until = self.after(self.client.reply_timeout)

    def bound(self, connection: socket.socket, until: float, what: str) -> None:
        left = min(until, self.end) - time.monotonic()
        if left <= 0:
            raise TimedOutError(
                f"no {what} in time",
                self.where,
                "Look whether another client keeps the daemon busy, or give it more time.",
            )
        connection.settimeout(None if left == math.inf else left)

    def address(self) -> str:
        try:
            found = socket.getaddrinfo(self.client.host, None, socket.AF_INET, socket.SOCK_STREAM)
        except (OSError, UnicodeError) as error:
            raise UnknownHostError(
                f"the name does not resolve ({error})", self.where, "Look at the name."
            ) from error
        return str(found[0][4][0])

    def connected(self) -> socket.socket:
        if not 1 <= self.client.port <= 65535:
            raise UsageError("the port is not 1 to 65535", self.where, "Choose another.")
        address = self.address()
        connection = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        try:
            self.bound(connection, self.after(self.client.connect_timeout), "connection")
            connection.connect((address, self.client.port))
        except BaseException as error:
            connection.close()
            if isinstance(error, socket.timeout):
                self.bound(connection, 0, "connection")
            if isinstance(error, OSError) and not isinstance(error, Error):
                advice = "Look whether q5_scand runs there and the network lets you through."
                what = f"no connection ({error.strerror or error})"
                raise ConnectError(what, self.where, advice) from error
            raise
        return connection

    def send(self, connection: socket.socket, out: bytes, until: float) -> None:
        self.bound(connection, until, "room to send")
        try:
            connection.sendall(out)
        except socket.timeout:
            self.bound(connection, 0, "room to send")
        except OSError as error:
            raise self.dropped(error.strerror or str(error)) from error

    def dropped(self, reason: str) -> DroppedError:
        return DroppedError(
            f"the daemon closed without an answer ({reason}): as a rule another id holds the bus",
            self.where,
            "Wait until its holder releases it, or look whether q5_scand still runs.",
        )

    def receive(self, connection: socket.socket, size: int, until: float, is_first: bool) -> bytes:
        data = b""
        while len(data) < size:
            self.bound(connection, until, "reply")
            try:
                part, reason = connection.recv(size - len(data)), "end of the stream"
            except socket.timeout:
                continue  # which `bound` reports
            except OSError as error:
                part, reason = b"", error.strerror or str(error)
            if not part:
                if is_first and not data:
                    raise self.dropped(reason)
                raise BrokenOffError(
                    f"the connection ended in the middle of the replies ({reason})",
                    self.where,
                    "Look whether q5_scand still runs; some requests may have run.",
                )
            data += part
        return data

    def receive_reply(
        self, connection: socket.socket, request: Request, until: float, is_first: bool
    ) -> None:
        [result] = struct.unpack(">i", self.receive(connection, 4, until, is_first))
        size = max(0, min(result, request.wanted()))
        request.rx = self.receive(connection, size, until, False)
        request.result = result
