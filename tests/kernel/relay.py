# SPDX-License-Identifier: Apache-2.0
"""A line of two pseudo-terminals between serve and the kernel, which can be pulled at a given byte."""
import os
import pty
import select
import threading
import tty

TO_KERNEL, TO_BOARD = "to kernel", "to board"


class Relay:
    """Passes bytes between `board_end` and `kernel_end`, the paths of two ttys."""

    def __init__(self):
        self.masters, self.slaves = {}, []
        for source in (TO_KERNEL, TO_BOARD):
            # What comes out of the board's end goes to the kernel, and the other way round.
            self.masters[source], slave = pty.openpty()
            tty.setraw(slave)
            self.slaves.append(slave)
        self.board_end, self.kernel_end = (os.ttyname(slave) for slave in self.slaves)
        self.passed = {TO_KERNEL: 0, TO_BOARD: 0}
        self.limit = {TO_KERNEL: None, TO_BOARD: None}
        self.stalls = {TO_KERNEL: False, TO_BOARD: False}
        self.pulled, self.stalled = threading.Event(), threading.Event()
        self.wake_reader, self.wake_writer = os.pipe()
        self.thread = threading.Thread(target=self.pass_on, daemon=True)
        self.thread.start()

    def pull_after(self, direction, count):
        """The line is pulled when so many more bytes have passed in one direction."""
        self.limit[direction] = self.passed[direction] + count

    def stall_after(self, direction, count):
        """The line stays, but no more than so many bytes pass in one direction."""
        self.stalls[direction] = True
        self.pull_after(direction, count)

    def pass_on(self):
        """The thread: copies until the line is pulled."""
        sources = {self.masters[way]: way for way in self.masters}
        while True:
            ready = select.select([*sources, self.wake_reader], [], [])[0]
            if self.wake_reader in ready:
                break
            for source in ready:
                way = sources[source]
                target = self.masters[TO_BOARD if way == TO_KERNEL else TO_KERNEL]
                try:
                    data = os.read(source, 4096)
                    limit = self.limit[way]
                    if limit is not None:
                        data = data[:limit - self.passed[way]]
                    self.passed[way] += os.write(target, data)
                except OSError:
                    # Nobody has that end open: as good as a line that nobody listens to.
                    continue
                if limit is None or self.passed[way] < limit:
                    continue
                if not self.stalls[way]:
                    self.hang_up()
                    return
                self.stalled.set()
        self.hang_up()

    def hang_up(self):
        """Both ends see the line go."""
        for descriptor in (*self.masters.values(), *self.slaves):
            os.close(descriptor)
        self.pulled.set()

    def close(self):
        """Pulls the line if it is not yet, and waits for the thread."""
        if self.thread is None:
            return
        os.write(self.wake_writer, b"x")
        self.thread.join(10)
        self.thread = None
        os.close(self.wake_reader)
        os.close(self.wake_writer)
