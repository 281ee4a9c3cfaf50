# SPDX-License-Identifier: Apache-2.0
"""A hostile board behind this kernel's sockets and on its buses: what `sideband` and `serve` make of it.

Environment: SIDEBAND_HOSTILE_SEED, of the first round, without which each run has a new one; SIDEBAND_HOSTILE_ROUNDS, with
all commands in each; without it there is one round, with some of them.
"""
import collections
import ctypes
import json
import mmap
import os
import pathlib
import random
import re
import shutil
import signal
import struct
import time

from exchange_counter import ExchangeCounter
from i2c import SLAVE_QUEUE, described
from judge import BOUND_S, Judge
from machine import Machine, Serving, run, wait_until
from mctp_socket import CONTROL, MctpSocket
from report import Skip
from same_tool import READING, WRITING, Sideband, behind_the_kernel, differences, expecting_board

# The device that says what it should; it is alone on its bus, and on the line among the others.
HONEST, HONEST_BUS = "well0", 7
HONEST_COMMANDS = (("mctp", "uuid", HONEST), ("pldm", "fru", HONEST), ("pldm", "sensors", HONEST))
# Messages of a thousand that a device changes: the fewer, the further a command gets.
RATES = (20, 100, 500)
READ_TIMEOUT_MS, HONEST_PATIENCE_MS = 100, 10_000
TIMEOUT_S, UPDATE_TIMEOUT_S = 1, 3
# Of a short round: those of each protocol that send most, and so many others.
ALWAYS = (("mctp", "uuid", "nvme0"), ("pldm", "sensors", "nic0"), ("pldm", "pdr", "show", "gpu0"),
          ("ncsi", "discover", "ncsi0"), ("nvme", "identify", "controller", "nvme0"))
OTHERS = 14
GET_EID = bytes.fromhex("8002")
# Resident memory of serve may move by some pages, and by what a namespace and an image take.
FLAT_KB = 256
DEFECT = re.compile(r"BUG:|WARNING:|Oops|Call Trace|unregister_netdevice")
# What glibc has in a mutex for the kind that sideband makes (checks errors, robust, shared by processes), and where.
MUTEX_KIND, MUTEX_KIND_AT, MUTEX_ALIGNED = 0x92, 16, 8

Round = collections.namedtuple("Round", "program folder sideband_program board faults rng short")


def commands(this, names):
    """What is asked of the devices, with its time limit, in an order of the seed's."""
    asked = [words for words in (*READING, *WRITING, ("mctp", "routes", "own0")) if set(names) & set(words)]
    if this.short:
        asked = [*ALWAYS, *this.rng.sample([words for words in asked if words not in ALWAYS], OTHERS)]
    updates = (("pldm", "fw-update", "nic0", str(this.folder / "nic.fwpkg")),
               ("nvme", "fw-download", "nvme0", str(this.folder / "drive.img"), "--commit", "replace", "--slot", "2"))
    asked = [*((words, TIMEOUT_S) for words in asked), *((words, UPDATE_TIMEOUT_S) for words in updates)]
    this.rng.shuffle(asked)
    return asked


def board_with_an_honest_device(folder):
    """(file of the built-in board with one device more, names of the others)"""
    board = json.loads(pathlib.Path(expecting_board(folder)).read_text())
    names = [device["name"] for device in board["devices"]]
    model = next(device for device in board["devices"] if device["name"] == "gpu0")
    board["devices"].append({**model, "name": HONEST, "bus": HONEST_BUS, "eid": 0,
                             "uuid": "77656c6c-302d-4f6e-8e00-0000000000ff",
                             "card": {**model["card"], "bdf": "4a:00.0", "slot": 9}})
    board["buses"].append({"bus": HONEST_BUS, "clock_hz": 400000})
    (folder / "hostile.json").write_text(json.dumps(board))
    return str(folder / "hostile.json"), names


def impatient(board):
    """Much time to answer for the honest device alone."""
    for device in board["devices"]:
        device["read_timeout_ms"] = HONEST_PATIENCE_MS if device["name"] == HONEST else READ_TIMEOUT_MS
    return board


# ---- What there is behind it

def mutexes(path):
    """What trying each mutex of the lock file says, 0 if it is free: result -> how many."""
    libc, results = ctypes.CDLL(None), collections.Counter()
    with open(path, "r+b") as file, mmap.mmap(file.fileno(), 0) as records:
        window = ctypes.c_char.from_buffer(records)
        for at in range(0, len(records) - MUTEX_KIND_AT, MUTEX_ALIGNED):
            if struct.unpack_from("=I", records, at + MUTEX_KIND_AT)[0] == MUTEX_KIND:
                mutex = ctypes.c_void_p(ctypes.addressof(window) + at)
                result = libc.pthread_mutex_trylock(mutex)
                results[result] += 1
                if result == 0:
                    libc.pthread_mutex_unlock(mutex)
        del window
    return dict(results)


def honest_answers(case, sideband, program, board):
    """The device that is not hostile answers as if the others were not there, and at once."""
    for words in HONEST_COMMANDS:
        started = time.monotonic()
        done = sideband.run(*words)
        took = time.monotonic() - started
        direct = run([program, "--board", board, "--json", *words])
        title = " ".join(words)
        case.equal(f"exit status of {title} ({done.stderr.strip()[-200:]})", done.returncode, 0)
        case.equal(f"exit status of {title} directly", direct.returncode, 0)
        case.equal(f"differences of {title}", differences(json.loads(done.stdout), json.loads(direct.stdout)), [])
        case.that(f"{title} took {took:.1f} s", took < BOUND_S)


def kernel_defects():
    """Lines of the kernel's own log that tell of a defect."""
    return [line for line in run(["dmesg"]).stdout.splitlines() if DEFECT.search(line)]


def ended(serving):
    """(exit status of serve, its last words)"""
    serving.process.send_signal(signal.SIGTERM)
    said, _ = serving.process.communicate(timeout=BOUND_S)
    return serving.end(), said.strip()


def quiet(line):
    """Whether nothing comes on the line any more."""
    def still():
        before = line.counters()["rx_packets"]
        time.sleep(0.3)
        return line.counters()["rx_packets"] == before
    return wait_until(still, 20)


def afterwards(case, this, serving, sideband):
    """What holds once all commands have ended."""
    free = mutexes(sideband.board.parent / "locks" / "locks")
    case.equal(f"results of trying {sum(free.values())} locks", list(free), [0])
    honest_answers(case, sideband, this.program, this.board)
    case.equal("defects in the kernel's log", kernel_defects(), [])
    status, said = ended(serving)
    case.equal("exit status of serve", status, 0)
    return said


# ---- The rounds

def one_pass(case, judge, asked, names, after_failure):
    """All commands in one manner; a comparison for each device."""
    wrong = {name: [] for name in names}
    for words, limit in asked:
        status, found = judge.run(words, limit)
        wrong[next(name for name in names if name in words)] += found
        if status != 0:
            after_failure()
    for name in names:
        count = sum(name in words for words, _ in asked)
        if count:
            case.equal(f"what {count} commands {judge.how} to {name} did wrong", wrong[name], [])
    case.note(str(judge))


def both_passes(case, this, serving, sideband, names, after_failure=lambda: None):
    """Lax and strict; descriptors and memory of serve are the same behind each."""
    behind = []
    for how in ("--lax", "--strict"):
        one_pass(case, Judge(sideband, how), commands(this, names), names, after_failure)
        behind.append(serving.footprint())
    case.equal("descriptors of serve", behind[1][1], behind[0][1])
    grown = behind[1][0] - behind[0][0]
    case.that(f"memory of serve grew by {grown} kB", grown <= FLAT_KB)
    case.note(f"serve: {behind} (kB resident, descriptors)")


def own_folder(this):
    """A folder in which nobody has set up a device yet."""
    folder = this.folder / "hostile"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    return folder


def options(this):
    """Those of serve that make devices hostile."""
    faults = [f"{name}=hostile:{seed}:{rate}" for name, (seed, rate) in this.faults.items()]
    return ["--board", this.board, *(word for fault in faults for word in ("--fault", fault))]


class Hearing:
    """The line of a machine, and what passes on it. A frame with more than 74 bytes leaves the receiver of Linux 6.1 deaf
    for good, to whoever sends: the line is then taken up again."""

    def __init__(self, case, machine):
        self.case, self.machine = case, machine
        self.deaf, self.totals = 0, collections.Counter()
        self.counter = ExchangeCounter(machine.line.interface)

    def bridge_answers(self):
        """Whether the bridge, which is honest, is heard."""
        with MctpSocket(CONTROL) as control:
            for _ in range(2):
                try:
                    control.ask(self.machine.served.document["eid"], GET_EID, 1)
                    return True
                except TimeoutError:
                    pass
        return False

    def check(self):
        """Takes up the line again if nothing is heard; that it then is shows that the bridge was not silent."""
        if self.bridge_answers():
            return
        self.deaf += 1
        self.count()
        self.machine.line.close()
        self.machine.attach()
        self.counter = ExchangeCounter(self.machine.line.interface)
        self.case.that("the bridge does not answer on a line that was taken up again", self.bridge_answers())

    def count(self):
        """Adds what has passed on the interface to what passed on those before; it must be there."""
        self.case.that("the interface is gone", self.machine.line.there())
        requests, answers = self.counter.counts()
        self.counter.close()
        self.totals.update({"requests": requests, "answers": answers, **self.machine.line.counters()})


def behind_the_line(case, this):
    """One round over the kernel's sockets."""
    with Machine(this.program, this.folder, *options(this)) as machine:
        board = impatient(behind_the_kernel(machine.served.eids))
        sideband = Sideband(this.sideband_program, own_folder(this), board)
        hearing = Hearing(case, machine)
        both_passes(case, this, machine.served, sideband, list(this.faults), hearing.check)
        case.that("the line does not become quiet", quiet(machine.line))
        hearing.check()
        hearing.count()
        case.note(f"the kernel's sockets: {dict(hearing.totals)}, deaf {hearing.deaf} times")
        afterwards(case, this, machine.served, sideband)


class CountingBuses(Serving):
    """A board whose buses are devices of this kernel; at its end it says what has passed."""

    FORMAT = ()

    def first_document(self):
        """The table, whose last line is that of the honest device."""
        for line in self.process.stdout:
            if line.startswith(HONEST):
                return line
        raise RuntimeError(f"serve ended with {self.process.wait()}")


def on_buses(case, this):
    """One round over I2C."""
    board = impatient(described(this.board))
    names = [device["name"] for device in board["devices"] if device["name"] != HONEST]
    sideband = Sideband(this.sideband_program, own_folder(this), board)
    serving = CountingBuses(this.program, this.folder, "--i2c", *options(this))
    try:
        both_passes(case, this, serving, sideband, names)
        for bus in board["buses"]:
            for path in (f"/dev/i2c-{bus['bus']}", SLAVE_QUEUE.format(bus=bus["bus"])):
                case.that(f"{path} is gone", pathlib.Path(path).exists())
        case.note(f"the kernel's buses: {afterwards(case, this, serving, sideband)}")
    finally:
        if serving.process.poll() is None:
            serving.end()


def check(report, program, folder, sideband_program):
    """All cases of this file."""
    if not pathlib.Path(sideband_program).exists():
        with report.case("sideband and a hostile board"):
            raise Skip("sideband is not built")
        return
    first = int(os.environ.get("SIDEBAND_HOSTILE_SEED") or time.time_ns() % 2**32)
    rounds = int(os.environ.get("SIDEBAND_HOSTILE_ROUNDS") or 0)
    board, names = board_with_an_honest_device(folder)
    for seed in range(first, first + max(rounds, 1)):
        rng = random.Random(seed)
        faults = {name: (rng.getrandbits(32), rng.choice(RATES)) for name in names}
        this = Round(program, folder, sideband_program, board, faults, rng, rounds == 0)
        for title, act in (("behind the kernel's sockets", behind_the_line), ("on the kernel's I2C buses", on_buses)):
            with report.case(f"sideband and a hostile board {title}") as case:
                case.note(f"SIDEBAND_HOSTILE_SEED={seed}")
                act(case, this)
