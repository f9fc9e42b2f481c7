# The Python client against the daemon on the emulated chassis, and against ends that misbehave.
import contextlib
import io
import pathlib
import re
import socket
import subprocess
import threading
import time
import unittest
from os import environ

import q5_scan
from q5_scan import Client, Request


# The blocks of a page under this title; as bytes.
def blocks(page, title):
    text = pathlib.Path(environ["Q5_DOCS"], page).read_text()
    return re.findall(f"^```{title}$(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def byte_blocks(title):
    return [bytes.fromhex(re.sub("#.*", "", b)) for b in blocks("protocol.md", "hex " + title)]


# A client of an end that takes a batch, answers with these bytes and closes, later.
@contextlib.contextmanager
def end_that(says, after):
    with socket.create_server(("127.0.0.1", 0)) as server:
        def serve():
            with server.accept()[0] as connection:
                connection.recv(8192)
                connection.sendall(says)
                time.sleep(after)
        thread = threading.Thread(target=serve)
        thread.start()
        yield Client(port=server.getsockname()[1], reply_timeout=1)
        thread.join()


class OfDaemon(unittest.TestCase):
    def setUp(self):
        command = [environ["Q5_CHASSIS"], "--fast", "--", environ["Q5_DAEMON"]]
        daemon = self.enterContext(subprocess.Popen(command))
        self.addCleanup(daemon.kill)
        for _ in range(100):
            with contextlib.suppress(q5_scan.ConnectError):
                return Client().request(3, 83) and None
            time.sleep(0.1)

    def test_page(self):
        claim, release, ask = q5_scan.claim_request(), q5_scan.release_request(), Request(3, 51)
        last = [claim, ask, Request(12, 147, b"\xa1\xa2\xa3", 16), Request(15, 83, rxlen=4),
                Request(6, 51), Request(4, 147, b"\xb1\xb2", 0), release]
        batches = [(7, [claim]), (9, [ask]), (7, [release]), (9, [ask]), (7, last)]
        pages = zip(batches, byte_blocks("client to daemon"), byte_blocks("daemon to client"))
        for (id, requests), batch, replies in pages:
            self.assertEqual(q5_scan.encode(id, requests), batch)
            with contextlib.suppress(q5_scan.DroppedError):
                Client(id=id).exchange(requests)
            answered = [r for r in requests if r.result is not None]
            words = [r.result.to_bytes(4, "big", signed=True) + r.rx for r in answered]
            self.assertEqual(replies, b"".join(words))
        self.assertEqual(q5_scan.decode(ask.data()).values(), [8, 165, "relay card"])
        with self.assertRaisesRegex(q5_scan.RequestError, "slot 6 command 51: .* ms. Look at: "):
            last[4].data()

    def test_demo(self):
        batch = [Request(3, 51), Request(4, 73), Request(12, 147, b"\1\2\3\xfe"), Request(23, 51),
                 Request(24, 83), Request(5, 51), Request(20, 51), Request(21, 51), Request(15, 84)]
        with Client().claim() as mine:
            self.assertNotIn(mine.id, (0, 2))
            mine.exchange(batch)
            with self.assertRaises(q5_scan.DroppedError), Client().claim(wait=0.2):
                pass
        self.assertEqual([r.result for r in batch], [18, 53, 4, 17, 16, -1, -3, -2, -4])
        with self.assertRaises(ZeroDivisionError), Client().claim():
            1 / 0
        readings = Client().fetch([7, 9])
        types = q5_scan.parse_types("s=string,h=sshort*0.01:celsius, h3=int,x=bytes:3")
        values = readings[7].message(types).values()
        self.assertEqual(values, ["thermometer", 21.5, -3.25, b"\0\x07\xa1"])
        self.assertEqual(readings[9].typed.meaning().state, "no card, or silent")

    def test_example(self):
        [code] = blocks("python.md", "python")
        with contextlib.redirect_stdout(io.StringIO()) as shown:
            exec(code.replace("chassis-4", "127.0.0.1"), {})
        self.assertIn("7 21.5\nslot 9 command 51: the request went out", shown.getvalue())


class WithoutDaemon(unittest.TestCase):
    def test_network(self):
        for says, after, error, results in [
                (b"", 0, q5_scan.DroppedError, [None, None]),
                (b"\0\0\0\x08\1\0\0\0", 0, q5_scan.BrokenOffError, [8, None]),
                (b"\0\0\0\x08\1\0", 2, q5_scan.TimedOutError, [8, None])]:
            batch = [Request(3, 83, rxlen=2), Request(4, 83)]
            with end_that(says, after) as client, self.assertRaises(error) as raised:
                client.exchange(batch)
            self.assertEqual([r.result for r in batch], results)
            self.assertEqual(raised.exception.num_replies, 2 - results.count(None))

    def test_usage(self):
        half = Request(1, 3, b"x" * 2048)
        for requests in [], [Request(32, 1)], [Request(1, 1, rxlen=4097)], [half, half]:
            self.assertRaises(q5_scan.UsageError, Client().exchange, requests)
        for types in "A", "A=", "A=word", "A=int,A=int", "A=rest*2", "A=bytes:4097", "A0=int":
            self.assertRaises(q5_scan.UsageError, q5_scan.parse_types, types)

    def test_messages(self):
        types = q5_scan.parse_types("b=sbyte,h=sshort,i=uint,s=string,x=rest")
        whole = b"\5bhisx\xff\xff\xfe\x80\0\0\1caf\xc3\xa9\0\xa1"
        self.assertEqual(q5_scan.decode(whole).values(), [255, 65534, 1 - 2**31, "café", b"\xa1"])
        self.assertEqual(q5_scan.decode(whole, types).values()[:3], [-1, -2, 2**31 + 1])
        for data, problem in [(b"\x80" + 130 * b"b", "128 letters, and has"), (b"\1q", "q has no type"),
                              (b"\1sab", "has no end"), (b"\1h\1", "beyond the payload")]:
            self.assertIn(problem, q5_scan.decode(data).problem)
