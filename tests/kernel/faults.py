# SPDX-License-Identifier: Apache-2.0
"""What goes wrong on a real machine: lines that are pulled, full queues, clients that share a device."""
import errno
import json
import os
import pathlib
import signal
import struct
import subprocess
import sys

from machine import NET, ROOT, Line, Machine, Served, wait_until
from mctp_socket import INTEGRITY, NVME_MI, PLDM, MctpSocket, opened, sealed
from nvme_cli import NvmeCli
from relay import TO_BOARD, TO_KERNEL, Relay

HERE = pathlib.Path(__file__).resolve().parent
GET_TID = bytes.fromhex("800002")
DATA = 4096
# Resident memory moves by some pages even where nothing is kept.
FLAT_KB = 128


def admin_request(opcode, dword10, dword11=0, length=0, data=b""):
    """An NVMe admin command to controller 0 (NVMe-MI, NVM Express Admin command set), with its check."""
    body = struct.pack("<BxxBBH20xII8x6I", 0x10, opcode, 0x01, 0, 0, len(data) or length,
                       dword10, dword11, 0, 0, 0, 0)
    return sealed(body + data)


def admin_answer(body):
    """(completion dword 3, data) of its answer."""
    body = opened(body)
    if len(body) < 19 or body[3]:
        raise ValueError(f"NVMe-MI answered with status {body[3]:#04x}")
    return struct.unpack_from("<I", body, 15)[0], body[19:]


IDENTIFY = admin_request(0x06, 1, length=DATA)


def identify(socket, eid):
    """Identify Controller, 4096 bytes."""
    status, data = admin_answer(socket.ask(eid, IDENTIFY, 10))
    if status:
        raise ValueError(f"Identify ended with {status:#010x}")
    return data


def nvme_socket():
    """A socket for NVMe-MI, whose messages have the integrity check."""
    return MctpSocket(NVME_MI | INTEGRITY)


def settled(case, machine, text):
    """The machine works as if nothing had been."""
    with MctpSocket(PLDM) as pldm, nvme_socket() as nvme:
        case.equal(f"GetTID {text}", pldm.ask(machine.eid("gpu0"), GET_TID).hex(), "0000020002")
        case.equal(f"Identify {text}", len(identify(nvme, machine.eid("nvme0"))), DATA)


# ---- The line is pulled

def pulled_line(case, program, folder, direction, request, length):
    """The line goes when so many bytes of a message have passed; the client gets nothing of it."""
    relay = Relay()
    served = Served(program, folder, "--tty", relay.board_end)
    line = Line(relay.kernel_end, served.eids.values())
    try:
        with nvme_socket() as socket:
            case.equal("Identify before", len(identify(socket, served.eids["nvme0"])), DATA)
            relay.pull_after(direction, length)
            socket.send(served.eids["nvme0"], request)
            case.that("the line was not pulled", relay.pulled.wait(10))
            case.equal("what came of the message", socket.receive(3), None)
            case.that("the interface stays", wait_until(lambda: not line.there()))
            try:
                socket.send(served.eids["nvme0"], request)
                said = 0
            except OSError as error:
                said = error.errno
            case.equal("the next request", errno.errorcode.get(said), "EHOSTUNREACH")
        case.that("serve is still there", wait_until(lambda: served.process.poll() is not None))
    finally:
        line.close()
        relay.close()
        status = served.end()
    case.equal("exit status of serve, whose tty is gone", status, 1)


def killed_board(case, program, folder):
    """The board dies while nvme-cli reads from it; the same kernel takes the next board."""
    relay = Relay()
    served = Served(program, folder, "--tty", relay.board_end)
    line = Line(relay.kernel_end, served.eids.values())
    try:
        relay.stall_after(TO_KERNEL, 2000)
        client = subprocess.Popen(["nvme", "id-ctrl", f"mctp:{NET},{served.eids['nvme0']}"],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.PIPE, text=True)
        case.that("the answer never began", relay.stalled.wait(10))
        served.end(signal.SIGKILL)
        relay.close()
        try:
            out, error = client.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            client.kill()
            raise
        case.that("nvme-cli ended well", client.returncode != 0)
        case.equal("what it showed", out, "")
        case.that("it gave no reason", error.strip() != "")
        case.note(f"nvme-cli: {error.strip()}")
        case.that("the interface stays", wait_until(lambda: not line.there()))
    finally:
        line.close()
        relay.close()
        if served.process.poll() is None:
            served.end(signal.SIGKILL)
    with Machine(program, folder) as machine:
        settled(case, machine, "with the next board")


def reopened_line(case, program, folder):
    """A client of the line leaves and comes back: the board is as it was left."""
    with Machine(program, folder) as machine:
        nvme = NvmeCli(machine.eid("nvme0"))
        nvme.ask("create-ns", "-s", "4096", "-c", "4096", "-f", "0")
        for leave in (Line.close, Line.abandon, Line.close):
            leave(machine.line)
            if leave is Line.close:
                case.that("the interface stays", wait_until(lambda: not machine.line.there()))
            machine.line = Line(machine.served.tty, machine.served.eids.values())
            allocated = nvme.document("list-ns", "--all")["nsid_list"]
            case.equal(f"namespaces behind {leave.__name__}", allocated, [{"nsid": 1}, {"nsid": 2}])


def rubbish(case, program, folder):
    """Bytes that are no frames, half a frame, and a flood, before the kernel has the line."""
    served = Served(program, folder)
    line = None
    try:
        raw = os.open(served.tty, os.O_RDWR | os.O_NOCTTY)
        flood = bytes(range(256)) * 64
        for junk in (b"\0" * 100, b"\x7e\x01\x20half a frame", b"\x7e" * 500, flood):
            os.write(raw, junk)
        line = Line(served.tty, served.eids.values())
        os.close(raw)
        with MctpSocket(PLDM) as socket:
            case.that("no answer behind the rubbish", wait_until(
                lambda: answers(socket, served.eids["gpu0"])))
            for _ in range(5):
                case.equal("GetTID", socket.ask(served.eids["gpu0"], GET_TID).hex(), "0000020002")
    finally:
        if line:
            line.close()
        case.equal("exit status of serve", served.end(), 0)


def answers(socket, eid):
    """Whether a device answers at once."""
    try:
        socket.ask(eid, GET_TID, 1)
    except TimeoutError:
        return False
    return True


# ---- Queues

def used_up_tags(case, program, folder):
    """The board takes nothing: requests are refused with an error at last, as a peer has eight tags, and all that went
    before is answered later."""
    with Machine(program, folder) as machine:
        sockets = [MctpSocket(PLDM) for _ in range(4)]
        eids = [machine.eid(name) for name in ("nic0", "gpu0", "gpu1", "nic1")]
        machine.served.process.send_signal(signal.SIGSTOP)
        refused, sent = None, 0
        try:
            while refused is None and sent < 5000:
                try:
                    sockets[sent % 4].send(eids[sent % 4], GET_TID)
                    sent += 1
                except OSError as error:
                    refused = error.errno
        finally:
            machine.served.process.send_signal(signal.SIGCONT)
        case.note(f"{sent} requests went into the queue, then {errno.errorcode.get(refused)}")
        case.equal("the error at last", errno.errorcode.get(refused), "EBUSY")
        case.equal("requests before it", sent, 8 * len(eids))
        answered = 0
        for socket in sockets:
            while socket.receive(2) is not None:
                answered += 1
        case.equal("requests that were answered in the end", answered, sent)
        for socket in sockets:
            socket.__exit__()
        settled(case, machine, "behind the full queue")


def full_of_large(case, program, folder):
    """Requests of 4096 bytes for every endpoint, until the line's queue itself takes no more."""
    large = bytes.fromhex("80003f").ljust(DATA, b"\0")
    with Machine(program, folder) as machine:
        sockets = {eid: MctpSocket(PLDM) for eid in machine.served.eids.values()}
        machine.served.process.send_signal(signal.SIGSTOP)
        sent, said = 0, []
        try:
            for eid, socket in sockets.items():
                # Linux 6.1 loses a reference where a send itself finds that its socket is full: the interface could
                # never be taken away again. So each is asked before.
                while not said and socket.writable():
                    try:
                        socket.send(eid, large)
                        sent += 1
                    except OSError as error:
                        said.append(errno.errorcode.get(error.errno))
        finally:
            machine.served.process.send_signal(signal.SIGCONT)
        case.note(f"{sent} requests went into the queue, then {said}")
        case.equal("the error at last", said, ["ENOBUFS"])
        for socket in sockets.values():
            while socket.receive(1) is not None:
                pass
            socket.__exit__()
        settled(case, machine, "behind the full queue")


def unread_answers(case, program, folder):
    """A client that does not read loses answers, and nobody else does."""
    with Machine(program, folder) as machine:
        eid = machine.eid("nvme0")
        with nvme_socket() as lazy, nvme_socket() as other:
            lazy.receive_room(4096)
            for _ in range(6):
                lazy.send(eid, IDENTIFY)
            for _ in range(6):
                case.equal("Identify of another client", len(identify(other, eid)), DATA)
            kept = 0
            while lazy.receive(1) is not None:
                kept += 1
            case.note(f"{kept} of 6 answers fitted the small buffer")
            case.that("all answers fitted: the buffer was not full", kept < 6)
            case.equal("Identify of the lazy one", len(identify(lazy, eid)), DATA)


# ---- Clients that share

def start_exchanges(eid, count, request, answer):
    """A client of its own process."""
    command = [sys.executable, HERE / "exchanges.py", eid, PLDM, count, request, answer]
    return subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def result_of(client, seconds=300):
    """What it printed."""
    try:
        out, error = client.communicate(timeout=seconds)
    except subprocess.TimeoutExpired:
        client.kill()
        raise
    if client.returncode != 0:
        raise RuntimeError(f"a client ended with {client.returncode}: {error.strip()[-300:] or out}")
    return json.loads(out)


def two_clients(case, program, folder):
    """Two processes ask one device different questions; each gets its own answers, and nvme-cli too."""
    with Machine(program, folder) as machine:
        eid = machine.eid("gpu0")
        # GetTID, and GetPLDMVersion of the base type (DSP0240).
        questions = [(GET_TID.hex(), "0000020002"), ("800003000000000100", None)]
        with MctpSocket(PLDM) as socket:
            questions[1] = (questions[1][0], socket.ask(eid, bytes.fromhex(questions[1][0])).hex())
        case.that("both answers are the same", questions[0][1] != questions[1][1])
        clients = [start_exchanges(eid, 200, *question) for question in questions]
        nvme = NvmeCli(machine.eid("nvme0"))
        for _ in range(3):
            case.equal("id-ctrl meanwhile", nvme.document("id-ctrl")["sn"].strip(), "ES24D0004711")
        for client in clients:
            case.equal("right answers", result_of(client)["right"], 200)


def owned_type(case, program, folder):
    """Another process has bound PLDM: requests and their answers are not its business."""
    with Machine(program, folder) as machine:
        eid = machine.eid("gpu0")
        with MctpSocket(PLDM) as owner, MctpSocket(PLDM) as second, MctpSocket(PLDM) as asker:
            owner.bind()
            try:
                second.bind()
                said = "is allowed"
            except OSError as error:
                said = f"ends with {errno.errorcode.get(error.errno)}"
                case.equal("error of a second bind", error.errno, errno.EADDRINUSE)
            case.note(f"a second bind of PLDM {said} on Linux {os.uname().release}")
            for _ in range(20):
                case.equal("GetTID", asker.ask(eid, GET_TID).hex(), "0000020002")
            case.equal("what the owner got of it", owner.receive(0.2), None)
            case.equal("GetTID asked by the owner", owner.ask(eid, GET_TID).hex(), "0000020002")


# ---- Size and number

def large_messages(case, program, folder):
    """4096 bytes of data each way, byte for byte: the drive compares what it gets, nvme-cli what it says."""
    image = b"SIMDRIVEES11    " + bytes((7 * at ^ at >> 8) & 0xFF for at in range(16, 4 * DATA))
    board = json.loads((ROOT / "platform" / "sim" / "boards" / "default.json").read_text())
    drive = next(device for device in board["devices"] if device["name"] == "nvme0")["drive"]
    (folder / "image").write_bytes(image)
    drive["firmware"]["expect_file"] = str(folder / "image")
    (folder / "board.json").write_text(json.dumps(board))
    with Machine(program, folder, "--board", str(folder / "board.json")) as machine:
        eid = machine.eid("nvme0")
        shown = subprocess.run(["nvme", "id-ctrl", f"mctp:{NET},{eid}", "-o", "binary"], check=True,
                               capture_output=True, timeout=60, stdin=subprocess.DEVNULL).stdout
        case.equal("bytes that nvme-cli read", len(shown), DATA)
        with nvme_socket() as socket:
            case.that("4096 bytes from the drive differ", identify(socket, eid) == shown)
            for damage, expected in ((1, 0x107), (0, 0)):
                for offset in range(0, len(image), DATA):
                    piece = bytearray(image[offset:offset + DATA])
                    piece[-1] ^= damage
                    request = admin_request(0x11, DATA // 4 - 1, offset // 4, data=bytes(piece))
                    case.equal(f"piece at {offset}", admin_answer(socket.ask(eid, request))[0], 0)
                commit = admin_request(0x10, 2)
                status = admin_answer(socket.ask(eid, commit))[0] >> 17 & 0x7FF
                case.equal(f"commit of an image with {damage} wrong bits", status, expected)


def many_exchanges(case, program, folder):
    """10,000 exchanges; memory and descriptors of both processes stay what they were early on."""
    count = 10000
    with Machine(program, folder) as machine:
        eid = machine.eid("gpu1")
        with MctpSocket(PLDM) as socket:
            answer = socket.ask(eid, GET_TID).hex()
        # The board's first tenth apart: what it builds up once is not what it loses each time.
        case.equal("answers to begin with", result_of(start_exchanges(eid, count // 10, GET_TID.hex(), answer))
                   ["right"], count // 10)
        before = machine.served.footprint()
        said = result_of(start_exchanges(eid, count, GET_TID.hex(), answer))
        after = machine.served.footprint()
        case.equal("right answers", said["right"], count)
        case.note(f"{count} exchanges in {said['seconds']} s; serve {before} -> {after}, client "
                  f"{said['early']} -> {said['late']} (kB resident, descriptors)")
        for who, early, late in (("serve", before, after), ("client", said["early"], said["late"])):
            case.that(f"memory of {who} grew from {early[0]} to {late[0]} kB", late[0] - early[0] <= FLAT_KB)
            case.equal(f"descriptors of {who}", late[1], early[1])
        counters = machine.line.counters()
        case.equal("frames with a wrong check", counters["rx_crc_errors"], 0)
        case.equal("dropped frames", counters["rx_dropped"] + counters["tx_dropped"], 0)


def check(report, program, folder):
    """All cases, each with a board of its own."""
    with report.case("faults: the line is pulled in the middle of an answer") as case:
        pulled_line(case, program, folder, TO_KERNEL, IDENTIFY, 1000)
    with report.case("faults: the line is pulled in the middle of a request") as case:
        request = admin_request(0x11, DATA // 4 - 1, data=bytes(DATA))
        pulled_line(case, program, folder, TO_BOARD, request, 1000)
    for name, run_case in (
            ("the board dies in the middle of an answer to nvme-cli", killed_board),
            ("the line is closed and opened again", reopened_line),
            ("rubbish, half a frame and a flood", rubbish),
            ("the kernel's tags are used up", used_up_tags),
            ("the kernel's queue is full of large messages", full_of_large),
            ("answers that nobody reads", unread_answers),
            ("two processes use one device", two_clients),
            ("another process owns the PLDM type", owned_type),
            ("4096-byte messages each way", large_messages),
            ("10,000 exchanges", many_exchanges)):
        with report.case(f"faults: {name}") as case:
            run_case(case, program, folder)
