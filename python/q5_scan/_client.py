"""Exchanges with the daemon, and the bus for one client alone."""

from __future__ import annotations

import contextlib
import dataclasses
import math
import os
import pkgutil
import socket
import struct
import subprocess
import sys
import threading
import time
import weakref
from typing import Any, Dict, Iterable, Iterator, List, Optional, Sequence

from ._batch import Reading, Request, claim_request, encode, is_word, release_request
from ._errors import (
    BrokenOffError,
    ConnectError,
    DroppedError,
    Error,
    NetworkError,
    RequestError,
    TimedOutError,
    UnknownHostError,
    UsageError,
)
from ._limits import MAX_REQUESTS, NUM_SLOTS, PORT, RAW_BLOCK, TYPED_MESSAGE


@dataclasses.dataclass(frozen=True)
class Client:
    """Whom to talk to, as whom, and for how long: seconds, or None for no limit.

    `connect_timeout` is for resolving the name and connecting; `reply_timeout` from then until the
    first reply is complete, and again from each reply to the next; `timeout` for the whole exchange.
    Before the first reply the daemon finishes the batches of those who came earlier. Programs that
    set no `id` share the id 2.
    """

    host: str = "127.0.0.1"
    port: int = PORT
    id: int = 2
    connect_timeout: Optional[float] = 10
    reply_timeout: Optional[float] = 30
    timeout: Optional[float] = None

    def __post_init__(self) -> None:
        if not isinstance(self.host, str) or not self.host:
            raise UsageError(f"{self.host!r} is not a host name", "host", "Give a name or address.")
        if not is_word(self.port) or not 1 <= self.port <= 65535:
            raise UsageError(f"{self.port!r} is not 1 to 65535", "port", "Choose another.")
        if not is_word(self.id):
            raise UsageError(f"{self.id!r} is not a signed 32-bit integer", "id", "Choose another.")
        for name in "connect_timeout", "reply_timeout", "timeout":
            _check_seconds(name, getattr(self, name))

    def exchange(self, requests: Iterable[Request]) -> List[Request]:
        """Sends the requests as one batch and fills in results and data.

        Returns them. Raises UsageError before anything is sent, or NetworkError.
        """
        batch = list(requests)
        out = encode(self.id, batch)
        for request in batch:
            request.result, request.rx = None, b""
        try:
            _Exchange(self, batch).run(out)
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
    def claim(self, wait: float = 0, id: Optional[int] = None) -> Iterator[Conversation]:
        """Holds the bus: yields a client whose batches alone are served, under its `id`.

        The id is a random one unless you choose it. While another id holds the bus the claim is
        retried for `wait` seconds, then DroppedError is raised. The bus is released when the block
        ends, and when the program dies, however it dies: a guardian process sees to that, at the
        cost of a small interpreter for as long as the claim is held. When the release fails, and
        nothing else has, its reason is raised.
        """
        _check_seconds("wait", wait)
        id = _fresh_id() if id is None else id
        if id == 0:
            raise UsageError("id 0 cannot hold the bus", "claim", "Choose another, or none.")
        holder = dataclasses.replace(self, id=id)
        with _Guardian(holder) as guardian:  # which releases what is not known to be released
            try:
                holder._take_bus(wait)
            except (ConnectError, UnknownHostError, RequestError, UsageError):
                guardian.dismiss()  # the claim was refused or never sent
                raise
            try:
                settings = {f.name: getattr(holder, f.name) for f in dataclasses.fields(holder)}
                yield Conversation(**settings)
            except BaseException:
                with contextlib.suppress(NetworkError, RequestError):
                    guardian.release()
                raise
            guardian.release()

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


@dataclasses.dataclass(frozen=True)
class Conversation(Client):
    """A client that holds the bus.

    Each batch begins with a claim of the same id, which leaves 99 requests to you: a daemon that
    was restarted meanwhile is claimed again, and where another client took the bus DroppedError is
    raised and nothing runs.
    """

    def exchange(self, requests: Iterable[Request]) -> List[Request]:
        batch, claim = list(requests), claim_request()
        encode(self.id, batch)
        if len(batch) >= MAX_REQUESTS:
            raise UsageError(
                f"{len(batch)} requests are not 1 to {MAX_REQUESTS - 1}",
                "batch",
                "One request of each batch claims the bus again: make two batches.",
            )
        try:
            super().exchange([claim, *batch])
        except NetworkError as error:
            error.num_replies = max(0, error.num_replies - 1)
            raise
        claim.data()
        return batch


def _check_seconds(name: str, value: Optional[float]) -> None:
    if value is None and name != "wait":
        return
    if not isinstance(value, (int, float)) or not 0 <= value < math.inf:
        raise UsageError(f"{value!r} is not a number of seconds", name, "Give 0 or more.")


def _fresh_id() -> int:
    """Not 0, which cannot hold the bus, and not 2, which is everybody's."""
    while True:
        id = int.from_bytes(os.urandom(4), "big") >> 1
        if id not in (0, 2):
            return id


class _Guardian:
    """A process that releases the bus when this one is gone, and the way to release it before."""

    in_use: weakref.WeakSet[_Guardian] = weakref.WeakSet()

    def __init__(self, holder: Client) -> None:
        self.holder, self.owner = holder, os.getpid()
        address = _Exchange(holder).address()
        source = pkgutil.get_data(__package__, "_guardian.py") or b""
        words = [sys.executable, "-ISc", source.decode(), address, str(holder.port), str(holder.id)]
        try:
            self.process = subprocess.Popen(
                words,
                bufsize=0,
                stdin=subprocess.PIPE,
                stdout=subprocess.DEVNULL,
                stderr=subprocess.DEVNULL,
                cwd="/",
                start_new_session=True,
            )
        except OSError as error:
            what = f"cannot start the guardian process ({error})"
            raise Error(what, "claim", "Check sys.executable and the limit of processes.") from error
        _Guardian.in_use.add(self)

    def __enter__(self) -> _Guardian:
        return self

    def __exit__(self, *_: Any) -> None:
        self.close()
        if os.getpid() == self.owner:
            threading.Thread(target=self.process.wait, daemon=True).start()  # leaves no zombie

    def close(self) -> None:
        _Guardian.in_use.discard(self)
        if self.process.stdin:
            self.process.stdin.close()

    def dismiss(self) -> None:
        with contextlib.suppress(OSError):
            if self.process.stdin:
                self.process.stdin.write(b".")

    def release(self) -> None:
        if os.getpid() == self.owner:  # a forked child does not own the claim
            bound = 15 if self.holder.timeout is None else min(15, self.holder.timeout)
            last = dataclasses.replace(self.holder, timeout=bound)
            last.exchange([release_request()])[0].data()
            self.dismiss()

    @staticmethod
    def forget_all() -> None:
        """In a forked child: its copies of the pipes would hide the end of the holder."""
        for guardian in list(_Guardian.in_use):
            guardian.close()


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_Guardian.forget_all)


class _Lookup(threading.Thread):
    """The resolution of one name, which the system does not bound; one at a time for each name."""

    pending: Dict[str, _Lookup] = {}
    lock = threading.Lock()

    def __init__(self, host: str) -> None:
        super().__init__(daemon=True)
        self.host, self.address, self.error = host, "", ""

    def run(self) -> None:
        try:
            found = socket.getaddrinfo(self.host, None, socket.AF_INET, socket.SOCK_STREAM)
            self.address = str(found[0][4][0])
        except (OSError, ValueError) as error:
            self.error = str(error)
        with _Lookup.lock:
            del _Lookup.pending[self.host]

    @staticmethod
    def of(host: str) -> _Lookup:
        with _Lookup.lock:
            lookup = _Lookup.pending.get(host)
            if not lookup:
                lookup = _Lookup(host)
                lookup.start()
                _Lookup.pending[host] = lookup
        return lookup

    @staticmethod
    def forget_all() -> None:
        """In a forked child, which has none of these threads."""
        _Lookup.pending, _Lookup.lock = {}, threading.Lock()


if hasattr(os, "register_at_fork"):
    os.register_at_fork(after_in_child=_Lookup.forget_all)


class _Exchange:
    """One connection, and how much of its time is left."""

    def __init__(self, client: Client, batch: Sequence[Request] = ()) -> None:
        self.client, self.batch = client, batch
        self.where = f"{client.host} port {client.port}"
        self.began = time.monotonic()
        self.end = self.after(client.timeout)
        self.connect_end = min(self.after(client.connect_timeout), self.end)
        self.has_begun = False  # a byte of a reply has arrived

    @staticmethod
    def after(seconds: Optional[float]) -> float:
        return math.inf if seconds is None else time.monotonic() + seconds

    def run(self, out: bytes) -> None:
        with self.connected() as connection:
            until = self.after(self.client.reply_timeout)
            self.send(connection, out, until)
            for number in range(1, len(self.batch) + 1):
                self.receive_reply(connection, number, until)
                until = self.after(self.client.reply_timeout)

    def bound(self, connection: socket.socket, until: float, what: str) -> None:
        left = min(until, self.end) - time.monotonic()
        if left <= 0:
            raise self.timed_out(what)
        connection.settimeout(None if left == math.inf else left)

    def timed_out(self, what: str) -> TimedOutError:
        return TimedOutError(
            f"timed out after {time.monotonic() - self.began:.1f} s waiting for {what}",
            self.where,
            "The daemon is busy with another client, or hung: give it more time, or check it.",
        )

    def address(self) -> str:
        with contextlib.suppress(OSError):
            return socket.inet_ntoa(socket.inet_aton(self.client.host))
        lookup = _Lookup.of(self.client.host)
        left = self.connect_end - time.monotonic()
        lookup.join(None if left == math.inf else max(0, left))
        if lookup.error:
            what = f"the name does not resolve ({lookup.error})"
            raise UnknownHostError(what, self.where, "Check the name.")
        if not lookup.address:
            raise self.timed_out("the name server")
        return lookup.address

    def connected(self) -> socket.socket:
        address = self.address()
        connection = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        try:
            self.bound(connection, self.connect_end, "the connection")
            connection.connect((address, self.client.port))
        except BaseException as error:
            connection.close()
            if isinstance(error, socket.timeout):
                self.bound(connection, 0, "the connection")
            if isinstance(error, OSError) and not isinstance(error, Error):
                advice = "Check that q5_scand runs there and that no firewall is between."
                what = f"no connection ({error.strerror or error})"
                raise ConnectError(what, self.where, advice) from error
            raise
        return connection

    def send(self, connection: socket.socket, out: bytes, until: float) -> None:
        self.bound(connection, until, "the daemon to read the batch")
        try:
            connection.sendall(out)
        except socket.timeout:
            self.bound(connection, 0, "the daemon to read the batch")
        except (ConnectionResetError, BrokenPipeError) as error:
            raise self.dropped(error.strerror or str(error)) from error
        except OSError as error:
            raise BrokenOffError(
                f"the batch was not sent as a whole ({error.strerror or error})",
                self.where,
                "Check the network.",
            ) from error

    def dropped(self, reason: str) -> DroppedError:
        return DroppedError(
            f"the daemon closed without an answer ({reason}): usually another id holds the bus",
            self.where,
            "Wait until its holder releases it, or check that q5_scand still runs.",
        )

    def receive(self, connection: socket.socket, size: int, until: float, number: int) -> bytes:
        data = b""
        while len(data) < size:
            self.bound(connection, until, f"reply {number} of {len(self.batch)}")
            try:
                part, reason = connection.recv(size - len(data)), "end of the stream"
            except socket.timeout:
                continue  # which `bound` reports
            except OSError as error:
                part, reason = b"", error.strerror or str(error)
            if not part:
                if not self.has_begun:
                    raise self.dropped(reason)
                raise BrokenOffError(
                    f"the connection ended in the middle of the replies ({reason})",
                    self.where,
                    "Check that q5_scand still runs; some requests may have run.",
                )
            data += part
            self.has_begun = True
        return data

    def receive_reply(self, connection: socket.socket, number: int, until: float) -> None:
        request = self.batch[number - 1]
        [result] = struct.unpack(">i", self.receive(connection, 4, until, number))
        size = max(0, min(result, request.wanted()))
        request.rx = self.receive(connection, size, until, number)
        request.result = result
