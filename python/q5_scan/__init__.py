r"""Talk to the cards of a chassis through its daemon, q5_scand.

    import q5_scan

    client = q5_scan.Client("chassis-4")
    for slot, reading in client.fetch([3, 7]).items():
        print(slot, reading.message().values())

    with client.claim() as mine:  # no other client's batches in between
        [answer] = mine.exchange([q5_scan.Request(12, 147, b"\x01\x02")])
        print(answer.data())

Every exchange is one connection and one batch, bounded in time, and leaves no socket open. Failures
are exceptions below Error, which says what happened, where and what to do; a card that fails is not
an exception but a result of less than 0 in its Request, until data() is called. Objects may be used
by several threads as long as each thread has requests of its own.
"""

from ._batch import Reading, Request, claim_request, encode, release_request, short_request
from ._client import Client, Conversation
from ._errors import (
    BrokenOffError,
    ConnectError,
    DroppedError,
    Error,
    IdentityError,
    NetworkError,
    RequestError,
    TimedOutError,
    UnknownHostError,
    UsageError,
)
from ._identity import Identity, find_identity, read_identity
from ._limits import (
    CLAIM,
    MAX_REQUESTS,
    MAX_RX,
    MAX_SHORT,
    MAX_TX,
    NUM_SLOTS,
    PORT,
    RAW_BLOCK,
    RELEASE,
    SHORT_MESSAGE,
    TYPED_MESSAGE,
)
from ._messages import USUAL_TYPES, Field, Message, Type, Types, Value, decode, parse_types
from ._results import Meaning, describe, slot_exists

__version__ = "2.0.0"
__all__ = [name for name in dir() if not name.startswith("_")]
