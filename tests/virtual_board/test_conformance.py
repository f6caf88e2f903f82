"""Drives the virtual board byte by byte, as a board tool would."""
import os
import select
import shutil
import subprocess
import tempfile
import time
import tty
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
BOARD = os.path.join(HERE, "..", "..", "tools", "virtual-board", "virtual-board")


class Board:
    def __init__(self, flavour, *args):
        self.dir = tempfile.mkdtemp()
        self.link = os.path.join(self.dir, "tty")
        started = time.monotonic()
        self.proc = subprocess.Popen(
            [BOARD, "--flavour", flavour, "--link", self.link, "--dump", os.path.join(self.dir, "dump"), *args],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.path = self.proc.stdout.readline().decode().strip()
        self.startup = time.monotonic() - started
        self.fd = None
        self.open()

    def open(self):
        self.fd = os.open(self.path, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.fd)

    def send(self, data):
        os.write(self.fd, data)

    def read_until(self, marker, timeout=5.0):
        out = b""
        end = time.monotonic() + timeout
        while marker not in out and time.monotonic() < end:
            r, _, _ = select.select([self.fd], [], [], 0.05)
            if r:
                try:
                    out += os.read(self.fd, 4096)
                except OSError:
                    break
        return out

    def close(self):
        if self.fd is not None:
            try:
                os.close(self.fd)
            except OSError:
                pass
        self.proc.terminate()
        self.proc.wait(10)
        shutil.rmtree(self.dir, ignore_errors=True)


class Conformance(unittest.TestCase):
    def board(self, flavour, *args):
        b = Board(flavour, *args)
        self.addCleanup(b.close)
        return b

    def test_repl_modes(self):
        for flavour in ("stm32", "esp32"):
            b = self.board(flavour)
            self.assertLess(b.startup, 1.0, "the board should start in under a second")
            b.send(b"\x02")
            time.sleep(0.3)
            self.assertTrue(b.read_until(b"never", timeout=0.3).endswith(b"\r\n>>> "))
            b.send(b"print(1+1)\r\n")
            self.assertEqual(b.read_until(b">>> "), b"print(1+1)\r\n2\r\n>>> ")
            b.send(b"\x05")
            self.assertIn(b"paste mode; Ctrl-C to cancel, Ctrl-D to finish\r\n=== ", b.read_until(b"=== "))
            b.send(b"for i in range(2):\n print('p', i)\n\x04")
            self.assertIn(b"p 1\r\n>>> ", b.read_until(b"p 1\r\n>>> "))
            b.send(b"\x01")
            self.assertEqual(b.read_until(b">"), b"\r\nraw REPL; CTRL-B to exit\r\n>")
            b.send(b"import sys\r\nprint(sys.stdin.buffer.read(4))\x04")
            time.sleep(0.1)
            b.send(b"wxyz")
            self.assertEqual(b.read_until(b"\x04>"), b"OKb'wxyz'\r\n\x04\x04>")
            b.send(b"1/0\x04")
            out = b.read_until(b"\x04>")
            self.assertTrue(out.startswith(b"OK\x04Traceback"))
            self.assertIn(b"ZeroDivisionError", out)
            # Ctrl-C interrupts code blocked in a stdin read.
            b.send(b"import sys\r\nsys.stdin.buffer.read(10)\x04")
            time.sleep(0.2)
            b.send(b"\x03")
            self.assertIn(b"KeyboardInterrupt", b.read_until(b"\x04>"))
            b.send(b"\x02")
            self.assertTrue(b.read_until(b">>> ").endswith(b">>> "))

    def test_console_streams(self):
        # A UART console: text translates line ends, .buffer does not, and
        # 0x03 is data while kbd_intr(-1) is in force.
        b = self.board("esp32", "--erase-ms", "200")
        b.send(b"\x01")
        b.read_until(b">")
        b.send(b"import sys,micropython\r\nsys.stdout.write('a\\nb');sys.stdout.buffer.write(b'c\\nd\\r\\n')\r\n"
               b"print(sys.platform)\r\nmicropython.kbd_intr(-1)\r\nprint(sys.stdin.buffer.read(3))\x04")
        time.sleep(0.2)
        b.send(b"\x03\r\n")
        self.assertEqual(b.read_until(b"\x04>"), b"OKa\r\nbc\nd\r\nesp32\r\nb'\\x03\\r\\n'\r\n\x04\x04>")
        # A sector erase keeps the board busy: 8 kB written erase two.
        b.send(b"f=open('e.bin','wb')\r\nf.write(bytes(8192))\r\nf.close()\x04")
        start = time.monotonic()
        b.read_until(b"\x04>")
        self.assertGreater(time.monotonic() - start, 0.4)
        b = self.board("stm32", "--no-raw-stdio")
        b.send(b"\x01")
        b.read_until(b">")
        b.send(b"import micropython\r\nprint(hasattr(micropython, 'kbd_intr'))\x04")
        self.assertEqual(b.read_until(b"\x04>"), b"OKFalse\r\n\x04\x04>")

    def test_ends_with_its_owner(self):
        link = os.path.join(tempfile.mkdtemp(), "tty")
        owner = subprocess.Popen(["sh", "-c", '"$0" --link "$1" >/dev/null 2>&1 & sleep 30', BOARD, link])
        end = time.monotonic() + 5
        while not os.path.exists(link) and time.monotonic() < end:
            time.sleep(0.05)
        self.assertTrue(os.path.exists(link))
        owner.kill()
        owner.wait()
        end = time.monotonic() + 8
        while os.path.exists(link) and time.monotonic() < end:
            time.sleep(0.1)
        self.assertFalse(os.path.exists(link), "the board goes away with its owner")

    def test_uart_pacing(self):
        b = self.board("esp32", "--baud", "9600")
        b.send(b"\x02")
        b.read_until(b">>> ")
        b.send(b"print('x'*1920)\r\n")
        start = time.monotonic()
        out = b.read_until(b"x" * 1920 + b"\r\n>>> ", timeout=10)
        elapsed = time.monotonic() - start
        rate = len(out) / elapsed
        self.assertLess(abs(rate - 960) / 960, 0.10, "paced at %.0f bytes/s" % rate)

    def test_rude_habits(self):
        # LF as a second Enter: a line sent with "\r\n" is answered with two
        # prompts, while LF stays data inside paste mode.
        b = self.board("stm32", "--lf-enter", "--stock-pyb")
        b.send(b"\x02")
        time.sleep(0.3)
        b.read_until(b"never", timeout=0.3)
        b.send(b"print(1)\r\n")
        self.assertEqual(b.read_until(b">>> \r\n>>> "), b"print(1)\r\n1\r\n>>> \r\n>>> ")
        b.send(b"\x05")
        b.read_until(b"=== ")
        b.send(b"import pyb\nprint(hasattr(pyb, 'FlashWriter'))\x04")
        out = b.read_until(b"never", timeout=0.5)
        self.assertTrue(out.endswith(b"False\r\n>>> "), out)
        # Fragmented delivery: the same bytes, in many reads.
        b = self.board("esp32", "--fragment", "7", "--max-gap", "10")
        b.send(b"\x02")
        b.read_until(b">>> ")
        b.send(b"print('y' * 600)\r\n")
        pieces, out = 0, b""
        end = time.monotonic() + 10
        while not out.endswith(b">>> ") and time.monotonic() < end:
            if select.select([b.fd], [], [], 0.05)[0]:
                out += os.read(b.fd, 4096)
                pieces += 1
        self.assertEqual(out, b"print('y' * 600)\r\n" + b"y" * 600 + b"\r\n>>> ")
        self.assertGreater(pieces, 3)


if __name__ == "__main__":
    unittest.main()
