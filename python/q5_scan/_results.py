"""Results in words."""

from __future__ import annotations

import dataclasses

from ._limits import CLAIM, NUM_SLOTS, RELEASE


@dataclasses.dataclass(frozen=True)
class Meaning:
    state: str  # in a few words, for a table
    meaning: str  # what happened
    look_at: str  # where to look for the reason; "" when nothing is wrong


_MEANINGS = {
    -1: Meaning(
        "line error",
        "the answer was damaged: a break, a framing error, an overrun, noise, or no address "
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
    """An answered request's result in words; claim and release have results of their own."""
    if command in (CLAIM, RELEASE):
        if result <= 0:
            return Meaning(
                "refused",
                "another id holds the bus",
                "which program holds the bus: it must release it first",
            )
        return Meaning("ok", "the bus is claimed" if command == CLAIM else "the bus is free", "")
    if result >= 0:
        return Meaning("ok", f"bytes received: {result}", "")
    return _MEANINGS.get(result) or Meaning(
        f"unknown result {result}",
        "a result that this program does not know",
        "whether the daemon is a q5_scand of another version",
    )




# Slots that the bus does not reach: they have no code on it.
_NO_SLOTS = (21, 22, 25, 26, 31)


def slot_exists(slot: int) -> bool:
    return 0 <= slot < NUM_SLOTS and slot not in _NO_SLOTS
