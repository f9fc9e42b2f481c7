"""What may go wrong."""

from __future__ import annotations


class Error(Exception):
    """`what` happened, `where`, and `advice` on what to do."""

    def __init__(self, what: str, where: str, advice: str) -> None:
        super().__init__(what, where, advice)  # what pickle restores it from
        self.what, self.where, self.advice = what, where, advice

    def __str__(self) -> str:
        return f"{self.where}: {self.what}. {self.advice}"


class UsageError(Error, ValueError):
    """The argument is wrong, or the daemon would refuse the batch; nothing was sent."""


class NetworkError(Error):
    """The batch was not answered as a whole.

    The first `num_replies` requests hold their results. The others may have run or not.
    """

    num_replies = 0


class UnknownHostError(NetworkError):
    """The name does not resolve."""


class ConnectError(NetworkError):
    """There is no connection; nothing was sent."""


class DroppedError(NetworkError):
    """The daemon closed the connection without an answer: usually another id holds the bus."""


class BrokenOffError(NetworkError):
    """The connection ended in the middle of the replies."""


class TimedOutError(NetworkError, TimeoutError):
    """A timeout has passed: for the connection, a reply or the whole exchange."""


class RequestError(Error):
    """A card failed, or a claim was refused; `result` is the result code."""

    def __init__(self, what: str, where: str, advice: str, result: int) -> None:
        super().__init__(what, where, advice)
        self.args += (result,)
        self.result = result


class IdentityError(Error):
    """An image contains no build identity."""
