# The Python client against the daemon on the emulated chassis, and against ends that misbehave.
import contextlib
import io
import os
import pathlib
import pickle
import re
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from os import environ
from unittest import mock

import q5_scan
from q5_scan import Client, Request


# The blocks of a page under this title; as bytes.
def blocks(page, title):
    text = pathlib.Path(environ["Q5_DOCS"], page).read_text()
    return re.findall(f"^```{title}$(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def byte_blocks(title):
    return [bytes.fromhex(re.sub("#.*", "", b)) for b in blocks("protocol.md", "hex " + title)]


# A client of an end that takes a batch, answers with these bytes, and closes later; or with one at a time.
@contextlib.contextmanager
def end_that(says, after, pace=0):
    with socket.create_server(("127.0.0.1", 0)) as server:
        def serve():
            with server.accept()[0] as connection, contextlib.suppress(OSError):
                connection.recv(8192)
                for i in range(0, len(says), 1 if pace else 8192):
                    connection.sendall(says[i:i + 1] if pace else says)
                    time.sleep(pace)
                time.sleep(after)
        thread = threading.Thread(target=serve)
        thread.start()
        yield Client(port=server.getsockname()[1], reply_timeout=1, timeout=0.5 if pace else None)
        thread.join()


class OfDaemon(unittest.TestCase):
    def setUp(self):
        command = [environ["Q5_CHASSIS"], "--fast", "--", environ["Q5_DAEMON"]]
        self.daemon = self.enterContext(subprocess.Popen(command))
        self.addCleanup(self.daemon.kill)
        for _ in range(100):
            with contextlib.suppress(q5_scan.ConnectError):
                return Client().request(3, 83) and None
            time.sleep(0.1)

    def test_page(self):
        claim, release, ask = q5_scan.claim_request(), q5_scan.release_request(), Request(3, 51)
        last = [claim, ask, Request(12, 147, b"\xa1\xa2\xa3", 16), Request(15, 83, rxlen=4),
                Request(6, 51), Request(4, 147, b"\xb1\xb2", 0), release]
        [batch], [replies] = map(byte_blocks, ("client to daemon", "daemon to client"))
        self.assertEqual(q5_scan.encode(7, last), batch)
        Client(id=7).exchange(last)
        words = [r.result.to_bytes(4, "big", signed=True) + r.rx for r in last]
        self.assertEqual(replies, b"".join(words))
        self.assertEqual(q5_scan.decode(ask.data()).values(), [8, 165, "relay card"])
        with self.assertRaisesRegex(q5_scan.RequestError, "slot 6 command 51: .* ms. Check "):
            last[4].data()

    def test_demo(self):
        with Client().claim() as mine:
            self.assertNotIn(mine.id, (0, 2))
            with self.assertRaises(q5_scan.DroppedError), Client().claim(wait=0.2):
                pass
        with self.assertRaises(ZeroDivisionError), Client().claim():
            1 / 0
        readings = Client().fetch([7, 9])
        types = q5_scan.parse_types("s=string,h=sshort*0.01:celsius, h3=int,x=bytes:3")
        values = readings[7].message(types).values()
        self.assertEqual(values, ["thermometer", 21.5, -3.25, b"\0\x07\xa1"])
        self.assertEqual(readings[9].typed.meaning().state, "no card, or silent")

    # However the program ends that has the bus, the next client gets it; what it forks has no part.
    def test_claims_end_with_their_program(self):
        for last in "os._exit(3)", "os.kill(os.getpid(), 15)", "os.killpg(0, 9)", "1 / 0":
            program = f"""if True:
                import os, q5_scan, sys, time
                with q5_scan.Client().claim(id=77) as mine:
                    os.fork() or sys.exit()
                    os.wait()
                    pid = os.fork() or os.setsid() or os.closerange(1, 3) or time.sleep(30)
                    print(pid, flush=True)
                    {last}"""
            done = subprocess.run([sys.executable, "-c", program], capture_output=True, timeout=20,
                                  text=True, start_new_session=True)
            with Client().claim(wait=2):
                os.kill(int(done.stdout), 9)

    def test_released_claim_is_left_alone(self):
        for pause in 0, 0.5:
            with Client().claim(id=77):
                time.sleep(pause)
                self.assertRaises(q5_scan.DroppedError, Client().request, 3, 51)

    def test_conversation_proves_its_claim(self):
        with Client().claim(id=77) as mine:
            self.daemon.kill()
            self.daemon.wait()
            self.setUp()
            self.assertEqual(len(mine.fetch()), 32)
            self.assertRaises(q5_scan.DroppedError, Client().request, 3, 51)
            with self.assertRaisesRegex(q5_scan.UsageError, "1 to 99"):
                mine.exchange([Request(3, 51, rxlen=0)] * 100)
            self.assertEqual(len(mine.exchange([Request(21, 51, rxlen=0) for _ in range(99)])), 99)
            Client(id=77).exchange([q5_scan.release_request()])
            with Client(id=78).claim(id=78), self.assertRaises(q5_scan.DroppedError) as raised:
                mine.request(3, 51)
            self.assertEqual(raised.exception.num_replies, 0)

    def test_example(self):
        [code] = blocks("library.md", "python")
        with contextlib.redirect_stdout(io.StringIO()) as shown:
            exec(code.replace("chassis-4", "127.0.0.1"), {})
        self.assertIn("7 21.5\nslot 9 command 51: the request went out", shown.getvalue())


class WithoutDaemon(unittest.TestCase):
    def test_network(self):
        for says, after, error, results in [
                (b"", 0, q5_scan.DroppedError, [None, None]),
                (b"\0\0\0\x04", 0, q5_scan.BrokenOffError, [None, None]),
                (b"\0\0\0\x08\1\0\0\0\0\0", 0, q5_scan.BrokenOffError, [8, None]),
                (b"\0\0\0\x08\1\0\0\0\0", 2, q5_scan.TimedOutError, [8, None])]:
            batch = [Request(3, 83, rxlen=4), Request(4, 83)]
            with end_that(says, after) as client, self.assertRaises(error) as raised:
                client.exchange(batch)
            self.assertEqual([r.result for r in batch], results)
            self.assertEqual(raised.exception.num_replies, 2 - results.count(None))

    def test_claim_comes_first(self):
        with end_that(b"\0\0\0\1", 0) as client, self.assertRaises(q5_scan.BrokenOffError) as raised:
            q5_scan.Conversation(port=client.port, id=7).exchange([Request(3, 83, rxlen=0)])
        self.assertEqual(raised.exception.num_replies, 0)

    def test_trickle_ends_in_time(self):
        with end_that(bytes(100), 0, 0.1) as client, self.assertRaisesRegex(
                q5_scan.TimedOutError, "timed out after 0.* waiting for reply"):
            client.exchange([Request(3, 51) for _ in range(100)])

    def test_silent_name_server_keeps_one_thread_for_a_name(self):
        answer = threading.Event()
        before = threading.active_count()
        with mock.patch("socket.getaddrinfo", side_effect=lambda *_: answer.wait(20) and 1 / 0):
            for limit in 3 * ["connect_timeout", "timeout"]:
                with self.assertRaisesRegex(q5_scan.TimedOutError, "after 0.* the name server"):
                    Client("chassis-4", **{limit: 0.02}).request(3, 51)
            self.assertEqual(threading.active_count(), before + 1)
            pid = os.fork()
            if not pid:  # has none of the parent's threads
                with mock.patch("socket.getaddrinfo", side_effect=OSError("gone")):
                    try:
                        Client("chassis-4").request(3, 51)
                    except BaseException as error:
                        os._exit(isinstance(error, q5_scan.UnknownHostError))
            self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), 1)
            threading.excepthook, hook = lambda _: None, threading.excepthook
            answer.set()
            threading.enumerate()[-1].join()
            threading.excepthook = hook

    def test_name_and_connection_share_a_limit(self):
        left = []
        def connect(connection, _):
            raise OSError(left.append(connection.gettimeout()))
        def look_up(*_):
            time.sleep(0.5)
            return [(0, 0, 0, "", ("127.0.0.1", 0))]
        with mock.patch("socket.getaddrinfo", look_up), mock.patch("socket.socket.connect", connect):
            self.assertRaises(q5_scan.ConnectError, Client("x", connect_timeout=5).request, 3, 51)
        self.assertLess(left[0], 4.6)

    def test_errors_pickle(self):
        for error in q5_scan.RequestError("a", "b", "c", -3), q5_scan.DroppedError("a", "b", "c"):
            error.num_replies = 7
            copy = pickle.loads(pickle.dumps(error))
            self.assertEqual((str(copy), vars(copy)), (str(error), vars(error)))

    def test_identity(self):
        image = b"Type: %s\0Type: relay\0Compiled on:\0Jan  5 2004\0%s\0"
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "image")
            path.write_bytes(bytes(3 << 20) + image % (b"%s", b"10:22:33"))
            found = q5_scan.read_identity(path)
            self.assertEqual((found.type, found.built), ("relay", (2004, 1, 5, 10, 22, 33)))
            self.assertLess(found.built, q5_scan.find_identity(image % (b"", b"10:22:34")).built)
            path.write_bytes(b"")
            for source, problem in [((image % (b"", b"10:22"))[7:], "invalid build date: 'Jan  5 2004 10:22'"),
                                    (b"Type: A\0\0\0\0", "no build date"),
                                    (b"Type: " + b"x" * 1000, "no build identity after it")]:
                with self.assertRaisesRegex(q5_scan.IdentityError, problem):
                    q5_scan.find_identity(source)
            self.assertRaises(q5_scan.IdentityError, q5_scan.read_identity, path)

    def test_usage(self):
        half = Request(1, 3, b"x" * 2048)
        for requests in ([], [Request(32, 1)], [Request(1, 1, rxlen=4097)], [half, half],
                         [Request("3", 1)], [Request(1, 1, "text")], [Request(1, 1.5)]):
            self.assertRaises(q5_scan.UsageError, Client().exchange, requests)
        for words in {"port": "1971"}, {"port": 65536}, {"id": 2**31}, {"host": ""}, {"timeout": -1}:
            self.assertRaises(q5_scan.UsageError, Client, **words)
        for types in "A", "A=", "A=word", "A=int,A=int", "A=rest*2", "A=bytes:4097", "A0=int":
            self.assertRaises(q5_scan.UsageError, q5_scan.parse_types, types)

    def test_messages(self):
        types = q5_scan.parse_types("b=sbyte,h=sshort,i=uint,s=string,x=rest")
        whole = b"\5bhisx\xff\xff\xfe\x80\0\0\1caf\xc3\xa9\0\xa1"
        self.assertEqual(q5_scan.decode(whole).values(), [255, 65534, 1 - 2**31, "café", b"\xa1"])
        self.assertEqual(q5_scan.decode(whole, types).values()[:3], [-1, -2, 2**31 + 1])
        for data, problem in [(b"\x80" + 130 * b"b", "128 letters, bytes after"), (b"\1q", "q has no type"),
                              (b"\1sab", "has no terminating NUL"), (b"\1h\1", "past the end of the payload")]:
            self.assertIn(problem, q5_scan.decode(data).problem)
