# SPDX-License-Identifier: Apache-2.0
"""The machine under test: a simulated board that is served, and the line that attaches it to this kernel."""
import json
import os
import pathlib
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts" / "kernel"))
import attach  # noqa: E402  pylint: disable=wrong-import-position

NET = 1
OWN_EID = 100


def run(command, seconds=60, **options):
    """A finished command, its output as text."""
    return subprocess.run([str(word) for word in command], capture_output=True, text=True,
                          timeout=seconds, stdin=subprocess.DEVNULL, check=False, **options)


class Tool:
    """sideband-sim on a board of its own: what it says directly, without any kernel between."""

    def __init__(self, program):
        self.program = program

    def ask(self, *words):
        """The document of one command that must succeed."""
        done = run([self.program, *words, "--json"])
        if done.returncode != 0:
            raise RuntimeError(f"{' '.join(words)}: {done.stderr.strip()}")
        return json.loads(done.stdout)

    def refused(self, *words):
        """The error of one command that must fail."""
        done = run([self.program, *words, "--json"])
        if done.returncode != 1:
            raise RuntimeError(f"{' '.join(words)} ended with {done.returncode}")
        return json.loads(done.stdout)["error"]


class Serving:
    """`sideband-sim serve` in a process of its own."""

    FORMAT = ("--json",)

    def __init__(self, program, folder, *options):
        self.log = open(folder / "serve.log", "a", encoding="utf-8")
        self.process = subprocess.Popen([str(program), "serve", *self.FORMAT, *options],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=self.log, text=True)
        try:
            self.document = self.first_document()
        except BaseException:
            self.end(signal.SIGKILL)
            raise

    def first_document(self):
        """What it prints when it is ready."""
        text = ""
        for line in self.process.stdout:
            text += line
            try:
                return json.loads(text)
            except ValueError:
                continue
        raise RuntimeError(f"serve ended with {self.process.wait()} and said {text!r}")

    def end(self, how=signal.SIGTERM):
        """Ends it; the exit status, negative for a signal."""
        if self.process.poll() is None:
            self.process.send_signal(how)
        try:
            status = self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
            raise
        finally:
            self.process.stdout.close()
            self.log.close()
        return status

    def footprint(self):
        """(resident kilobytes, open descriptors)."""
        return footprint(self.process.pid)


class Served(Serving):
    """A board behind a serial line."""

    def __init__(self, program, folder, *options):
        super().__init__(program, folder, *options)
        self.tty = self.document["tty"]
        self.eids = {endpoint["name"]: endpoint["eid"] for endpoint in self.document["endpoints"]}


def footprint(process):
    """(resident kilobytes, open descriptors) of a process."""
    status = pathlib.Path("/proc", str(process), "status").read_text(encoding="ascii")
    resident = next(line for line in status.splitlines() if line.startswith("VmRSS:"))
    return int(resident.split()[1]), len(os.listdir(f"/proc/{process}/fd"))


class Line:
    """A tty attached to the kernel, with a route to every endpoint behind it."""

    def __init__(self, tty, eids):
        self.descriptor, self.interface = attach.attach(tty, OWN_EID, sorted(eids))

    def counters(self):
        """The kernel's statistics of the interface."""
        folder = pathlib.Path("/sys/class/net", self.interface, "statistics")
        return {name: int((folder / name).read_text())
                for name in ("rx_packets", "tx_packets", "rx_dropped", "rx_crc_errors", "tx_dropped")}

    def there(self):
        """Whether the kernel still has the interface."""
        return pathlib.Path("/sys/class/net", self.interface).exists()

    def close(self):
        """Takes the line from the kernel."""
        if self.descriptor is not None:
            attach.detach(self.descriptor)
            self.descriptor = None

    def abandon(self):
        """Leaves the line as a process does that is killed."""
        os.close(self.descriptor)
        self.descriptor = None


class Machine:
    """A served board behind an attached line, for the length of a `with`."""

    def __init__(self, program, folder, *options):
        self.arguments = (program, folder, *options)
        self.served = self.line = None

    def __enter__(self):
        self.served = Served(*self.arguments)
        try:
            self.attach()
        except BaseException:
            self.served.end(signal.SIGKILL)
            raise
        return self

    def __exit__(self, *_):
        self.line.close()
        if self.served.process.poll() is None:
            self.served.end()

    def attach(self):
        """Takes up the line, with a route to the bridge and to every endpoint behind it."""
        table = {*self.served.eids.values(), self.served.document["eid"]} - {0}
        self.line = Line(self.served.tty, table)

    def eid(self, name):
        """The EID of a device of the board."""
        return self.served.eids[name]


def wait_until(what, seconds=10.0):
    """Whether something comes to hold in time."""
    deadline = time.monotonic() + seconds
    while not what():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.02)
    return True
