# SPDX-License-Identifier: Apache-2.0
"""The simulated board's I2C buses as character devices of this kernel: `sideband` on them beside `sideband-sim`
directly, and Debian's i2c-tools."""
import contextlib
import json
import pathlib
import signal
import subprocess
import time

from machine import ROOT, Serving, run, wait_until
from report import Skip
from same_tool import READING, WRITING, Sideband, compare_all, expecting_board, updates

# Keys of the simulated board's file that the file of a Linux machine has as well.
BUS_KEYS = ("bus", "muxes")
DEVICE_KEYS = ("name", "bus", "address", "mux", "pec", "unit_size", "i2c_delay_us", "read_timeout_ms")
NAMES = ("nic0", "gpu0", "rec0", "ncsi0", "nvme0")
SLAVE_QUEUE = "/dev/i2c-{bus}-slave-queue"
PATIENCE_MS = 10_000
# For the one device that is asked for what it does not answer: each such question takes this long.
LITTLE_PATIENCE_MS = 2_000
GPU_BUS, GPU = 3, 0x9E
MUX_BUS, MUX = 2, 0xE0
BMC = 0x20
# Get Endpoint ID, from the command code on: to EID 0, from EID 8, tag 1.
GET_EID = bytes.fromhex("0f 08 21 01 00 08 c9 00 80 02")


def pec(data):
    """SMBus 3.2, clause 6.4."""
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = (crc << 1 ^ 0x07) & 0xFF if crc & 0x80 else crc << 1
    return crc


def described(board_file):
    """What the file of a Linux machine says of the buses and devices of a simulated board. All but the one that
    is asked for what it does not answer have much time to answer on a busy machine."""
    board = json.loads(pathlib.Path(board_file).read_text())
    devices = [{"read_timeout_ms": LITTLE_PATIENCE_MS if device["name"] == "ncsi0" else PATIENCE_MS,
                **{key: device[key] for key in DEVICE_KEYS if key in device}}
               for device in board["devices"] if device.get("transport", "i2c") == "i2c"]
    return {"i2c": {"slave_queue": SLAVE_QUEUE}, "devices": devices,
            "buses": [{key: bus[key] for key in BUS_KEYS if key in bus} for bus in board["buses"]]}


@contextlib.contextmanager
def buses(program, folder, *options):
    """A board whose buses are devices of this kernel."""
    serving = Serving(program, folder, "--i2c", *options)
    try:
        yield serving
    finally:
        if serving.process.poll() is None:
            serving.end()


def board_with(folder, faults):
    """The built-in board, with faults of some devices."""
    board = json.loads((ROOT / "platform" / "sim" / "boards" / "default.json").read_text())
    for device in board["devices"]:
        device.setdefault("faults", []).extend(faults.get(device["name"], []))
    (folder / "faulty.json").write_text(json.dumps(board))
    return str(folder / "faulty.json")


def hexes(data):
    """Bytes as i2ctransfer takes them."""
    return [f"0x{byte:02x}" for byte in data]


def transfer(bus, *words):
    """What i2ctransfer says."""
    return run(["i2ctransfer", "-y", str(bus), *words])


def from_queue(bus, seconds=5.0):
    """The next block, by dd; empty if none comes."""
    block = b""
    deadline = time.monotonic() + seconds
    while not block and time.monotonic() < deadline:
        done = subprocess.run(["dd", f"if={SLAVE_QUEUE.format(bus=bus)}", "bs=300", "count=1", "status=none"],
                              stdin=subprocess.DEVNULL, capture_output=True, check=True)
        block = done.stdout
    return block


def both_at_once(block, expected):
    """What one reading to the end makes of two answers. On a busy machine they may take a while to come, and
    nothing tells how many are there: if it was too early, and nothing was lost, they are asked for again."""
    text = ""
    for pause in (0.1, 0.5, 2, 5):
        for _ in range(2):
            transfer(GPU_BUS, f"w{len(block)}@0x{GPU >> 1:02x}", *hexes(block))
        time.sleep(pause)
        text = run(["sh", "-c", f"cat {SLAVE_QUEUE.format(bus=GPU_BUS)} | xxd -p | tr -d '\n'"]).stdout
        late = "" if text == expected else "".join(iter(lambda: from_queue(GPU_BUS).hex(), ""))
        if not late or text + late != expected:
            break
    return text


def addresses(bus):
    """7-bit addresses at which i2cdetect finds somebody."""
    done = run(["i2cdetect", "-y", str(bus)])
    if done.returncode != 0:
        raise RuntimeError(done.stderr)
    found = set()
    for line in done.stdout.splitlines()[1:]:
        found.update(int(word, 16) for word in line.split(":")[1].split() if word != "--")
    return found


def with_i2c_tools(case):
    """i2cdetect and i2ctransfer on the devices."""
    functions = run(["i2cdetect", "-F", str(GPU_BUS)]).stdout.splitlines()
    has = {line.rsplit(None, 1)[0].strip() for line in functions[1:] if line.endswith("yes")}
    case.that(f"i2cdetect -F tells of I2C and PEC: {has}", {"I2C", "SMBus PEC", "SMBus Quick Command"} <= has)
    case.equal("i2cdetect on the bus of gpu0", addresses(GPU_BUS), {GPU >> 1})
    case.equal("i2cdetect before the multiplexer is switched", addresses(MUX_BUS), {MUX >> 1})
    switched = transfer(MUX_BUS, f"w1@0x{MUX >> 1:02x}", "0x02")
    case.equal("exit status of switching the multiplexer", switched.returncode, 0)
    case.equal("i2cdetect on channel 1", addresses(MUX_BUS), {MUX >> 1, 0x64 >> 1})
    case.equal("what the multiplexer says", transfer(MUX_BUS, f"r1@0x{MUX >> 1:02x}").stdout.strip(), "0x02")
    transfer(MUX_BUS, f"w1@0x{MUX >> 1:02x}", "0x06")
    case.equal("i2cdetect on channels 1 and 2", addresses(MUX_BUS), {MUX >> 1, 0x64 >> 1, 0x3A >> 1})


def by_hand(case):
    """Get Endpoint ID, written byte by byte."""
    block = GET_EID + bytes([pec(bytes([GPU]) + GET_EID)])
    sent = transfer(GPU_BUS, f"w{len(block)}@0x{GPU >> 1:02x}", *hexes(block))
    case.equal(f"exit status of i2ctransfer ({sent.stderr.strip()})", sent.returncode, 0)
    answer = from_queue(GPU_BUS)
    case.equal("whom the answer is for, command code, byte count", answer[:3], bytes([BMC, 0x0F, len(answer) - 4]))
    case.equal("who it is from", answer[3], GPU | 1)
    case.equal("its PEC", answer[-1], pec(answer[:-1]))
    case.equal("control message, instance, command, success", answer[8:12], bytes.fromhex("00 00 02 00"))
    case.equal("the queue is empty", from_queue(GPU_BUS, 0.3), b"")
    case.equal("what cat makes of two answers", both_at_once(block, (answer + answer).hex()), (answer + answer).hex())
    wrong = transfer(GPU_BUS, f"w{len(block)}@0x{GPU >> 1:02x}", *hexes(block[:-1] + bytes([block[-1] ^ 1])))
    case.that(f"a wrong PEC is refused: {wrong.stderr.strip()}", wrong.returncode == 1 and "Input/output" in wrong.stderr)
    nobody = transfer(GPU_BUS, "w1@0x12", "0x00")
    case.that(f"nobody is at 0x12: {nobody.stderr.strip()}", nobody.returncode == 1 and "No such device" in nobody.stderr)


def message(done):
    """The error of a command that failed."""
    return json.loads(done.stdout)["error"]["message"]


def refusals(case, sideband):
    """One line says what failed."""
    def expect(what, *words, user=None):
        done = run([sideband.program, "--board", sideband.board, "--json", *words], user=user)
        case.equal(f"exit status of {' '.join(words)}", done.returncode, 1)
        case.that(f"{message(done)!r} says {what!r}", what in message(done))

    expect("no such bus: /dev/i2c-7 is not there", "mctp", "eid", "i2c:7:0x9e")
    expect("no acknowledge from 0x40", "mctp", "uuid", f"i2c:{GPU_BUS}:0x40")
    expect("/dev/i2c-3: Permission denied", "mctp", "uuid", "gpu0", user="nobody")
    done = run([sideband.program, "--json", "mctp", "uuid", f"i2c:{GPU_BUS}:0x9e"])
    case.that(f"{message(done)!r} names the usual queue",
              "no slave queue: /sys/bus/i2c/devices/3-1010/slave-mqueue is not there" in message(done))


def stale(case, sideband):
    """A late answer in the queue is not taken for one to this request."""
    block = GET_EID + bytes([pec(bytes([0x64]) + GET_EID)])
    transfer(MUX_BUS, f"w1@0x{MUX >> 1:02x}", "0x02")
    for _ in range(3):
        sent = transfer(MUX_BUS, f"w{len(block)}@0x{0x64 >> 1:02x}", *hexes(block))
        case.equal("exit status of a request whose answer nobody reads", sent.returncode, 0)
    time.sleep(0.5)
    for name in ("nic0", "nvme0"):
        done = sideband.run("mctp", "uuid", name)
        case.equal(f"exit status for {name} ({done.stderr.strip()})", done.returncode, 0)
    case.equal("what is left in the queue", from_queue(MUX_BUS, 0.3), b"")


def channel(case, sideband):
    """A channel that a kernel driver has given a bus number of its own: blocks arrive on the bus in front."""
    own = {"bus": 20, "device": f"/dev/i2c-{MUX_BUS}", "slave_queue": SLAVE_QUEUE.format(bus=MUX_BUS)}
    described_so = Sideband(sideband.program, sideband.board.parent, {
        "buses": [own], "devices": [{"name": "nic0", "bus": 20, "address": "0x64"}]})
    transfer(MUX_BUS, f"w1@0x{MUX >> 1:02x}", "0x02")  # what the driver does
    done = described_so.run("pldm", "info", "nic0")
    case.equal(f"exit status of pldm info ({done.stderr.strip()})", done.returncode, 0)
    case.equal("what the multiplexer says", transfer(MUX_BUS, f"r1@0x{MUX >> 1:02x}").stdout.strip(), "0x02")


def faulty(case, sideband):
    """What the bus does wrong is told, and the next command works."""
    done = sideband.run("mctp", "uuid", "gpu0")
    case.equal("exit status behind three missing acknowledges", done.returncode, 1)
    case.that(f"{message(done)!r} says so", "no acknowledge from 0x9e" in message(done))
    case.equal("exit status of the next", sideband.run("mctp", "uuid", "gpu0").returncode, 0)
    done = sideband.run("mctp", "uuid", "nic0")
    case.equal("exit status behind a block with a wrong PEC", done.returncode, 1)
    case.that(f"{message(done)!r} says so", "a block has come whose PEC is wrong" in message(done))
    case.equal("exit status of the next", sideband.run("mctp", "uuid", "nic0").returncode, 0)


def at_once(case, sideband):
    """Processes on one bus take turns, each with the multiplexer as it needs it. The devices have their EIDs before:
    of two processes that both find one without, the second would give it another."""
    for name in ("nic0", "nvme0"):
        done = sideband.run("mctp", "eid", name)
        case.equal(f"exit status of the first command to {name} ({done.stderr.strip()[-200:]})", done.returncode, 0)
    commands = [("pldm", "sensors", "nic0"), ("nvme", "health", "nvme0")] * 4
    processes = [subprocess.Popen([str(sideband.program), "--board", str(sideband.board), "--json", *words],
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                 for words in commands]
    for words, process in zip(commands, processes):
        _, error = process.communicate(timeout=60)
        case.equal(f"exit status of {' '.join(words)} ({error.decode().strip()[-200:]})", process.returncode, 0)


def stuck_board(folder):
    """The built-in board, whose drive says nothing to the third piece of an image and to any behind it."""
    board = json.loads((ROOT / "platform" / "sim" / "boards" / "default.json").read_text())
    for device in board["devices"]:
        if device["name"] == "nvme0":
            device["drive"]["faults"] = [{"kind": "no_answer", "set": "admin", "opcode": "0x11", "at": 3, "count": 0}]
    (folder / "stuck.json").write_text(json.dumps(board))
    return str(folder / "stuck.json")


def gone(case, serving, sideband):
    """The bus is taken away in the middle of a download, as a driver can be."""
    process = subprocess.Popen([str(sideband.program), "--board", str(sideband.board), "--json", "nvme",
                                "fw-download", "nvme0", str(sideband.board.parent / "drive.img")],
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    time.sleep(3)
    case.that("the download is under way", process.poll() is None)
    serving.end(signal.SIGKILL)
    output, error = process.communicate(timeout=60)
    case.equal(f"exit status ({error.strip()[-300:]})", process.returncode, 1)
    case.that(f"{output[-300:]!r} says how far it got", "of 16384" in output)
    case.that("the devices are gone", wait_until(lambda: not pathlib.Path("/dev/i2c-2").exists()))
    done = sideband.run("mctp", "uuid", "nvme0")
    case.equal("exit status of the next command", done.returncode, 1)
    case.equal("what it says", message(done), "nvme0: no such bus: /dev/i2c-2 is not there")


def check(report, program, tool, folder, sideband_program):
    """All cases of this file."""
    if not pathlib.Path(sideband_program).exists():
        with report.case("sideband on I2C buses"):
            raise Skip("sideband is not built")
        return
    board = described(ROOT / "platform" / "sim" / "boards" / "default.json")
    for title, commands in (("reading over I2C", READING), ("writing over I2C", WRITING)):
        with buses(program, folder):
            compare_all(report, Sideband(sideband_program, folder, board), tool, title, NAMES, commands)
    with report.case("sideband over I2C updates the firmware of a NIC and of a drive") as case:
        with buses(program, folder, "--board", str(expecting_board(folder))):
            updates(case, Sideband(sideband_program, folder, board), folder)
    for title, act in (("i2cdetect and i2ctransfer", with_i2c_tools), ("a request by hand", by_hand)):
        with report.case(f"i2c-tools: {title}") as case:
            with buses(program, folder):
                act(case)
    for title, act in (("refusals", refusals), ("stale answers", stale),
                       ("a channel with a bus number of its own", channel), ("eight processes at once", at_once)):
        with report.case(f"sideband over I2C: {title}") as case:
            with buses(program, folder):
                act(case, Sideband(sideband_program, folder, board))
    with report.case("sideband over I2C: faults on the bus") as case:
        faults = board_with(folder, {"gpu0": [{"kind": "no_ack", "count": 3}], "nic0": [{"kind": "bad_pec", "count": 1}]})
        with buses(program, folder, "--board", faults):
            faulty(case, Sideband(sideband_program, folder, board))
    with report.case("sideband over I2C: a bus that goes away") as case:
        with buses(program, folder, "--board", stuck_board(folder)) as serving:
            gone(case, serving, Sideband(sideband_program, folder, board))
