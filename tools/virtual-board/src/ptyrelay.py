#!/usr/bin/env python3
"""Holds a pseudo-terminal open under a fixed path and relays it to stdio.

stdin carries what the board prints (written to the pty master), stdout what
the PC sends (read from the master). The master stays open while no program
has the device open, so a client can close and reopen the path freely; board
output produced while nobody listens is discarded, as a USB CDC port does.
Killing this process makes the device vanish, which is how the board "drops
off the bus".
"""
import errno
import os
import pty
import select
import signal
import sys
import tty

link = sys.argv[1]
master, slave = pty.openpty()
tty.setraw(slave)
name = os.ttyname(slave)
os.close(slave)


def cleanup(*_):
    try:
        if os.path.islink(link) and os.readlink(link) == name:
            os.unlink(link)
    except OSError:
        pass
    os._exit(0)


signal.signal(signal.SIGTERM, cleanup)
signal.signal(signal.SIGINT, cleanup)
signal.signal(signal.SIGHUP, cleanup)

try:
    if os.path.lexists(link):
        os.unlink(link)
    os.symlink(name, link)
except OSError as e:
    sys.stderr.write("ptyrelay: cannot create %s: %s\n" % (link, e))
    sys.exit(1)

sys.stderr.write("READY %s\n" % name)
sys.stderr.flush()

stdin_fd = sys.stdin.fileno()
stdout_fd = sys.stdout.fileno()
os.set_blocking(master, False)


def slave_closed():
    probe = select.poll()
    probe.register(master, select.POLLIN)
    res = probe.poll(0)
    return bool(res) and bool(res[0][1] & select.POLLHUP)


while True:
    closed = slave_closed()
    fds = [stdin_fd] if closed else [stdin_fd, master]
    readable, _, _ = select.select(fds, [], [], 0.02 if closed else 1.0)
    if stdin_fd in readable:
        data = os.read(stdin_fd, 65536)
        if not data:
            cleanup()
        view = memoryview(data)
        while view and not closed:
            try:
                view = view[os.write(master, view):]
            except BlockingIOError:
                select.select([], [master], [], 0.05)
                closed = slave_closed()
            except OSError:
                break
    if master in readable:
        try:
            data = os.read(master, 65536)
        except (BlockingIOError, OSError):
            data = b""
        if data:
            os.write(stdout_fd, data)
