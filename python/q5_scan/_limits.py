"""Numbers of the protocol."""

PORT = 1971
CLAIM, RELEASE = 1, 2
TYPED_MESSAGE, RAW_BLOCK, SHORT_MESSAGE = 51, 83, 147
NUM_SLOTS = 32
MAX_REQUESTS = 100  # of a batch
MAX_TX = 4094  # bytes to transmit, all requests of a batch together
MAX_RX = 4096  # bytes wanted back, each request
MAX_SHORT = 27  # bytes of a short message after its first two
