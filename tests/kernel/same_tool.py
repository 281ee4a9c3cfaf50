# SPDX-License-Identifier: Apache-2.0
"""`sideband` over the kernel's MCTP beside `sideband-sim` directly: the same commands, the same documents."""
import json
import pathlib

from machine import NET, ROOT, Machine, run
from report import Skip

# What moves with time: both must have it, of the same kind.
VARYING = {"present_reading", "value", "converted_reading", "present_state", "previous_state", "event_state",
           "temperature", "temperature_sensor_1", "ctemp", "ccs", "sprog"}
# What comes and goes with them.
AT_TIMES = {"threshold_crossed"}
# What only the file of the simulated board says, where the device itself has no name for a sensor.
BOARD_KNOWS = {"name", "unit"}
PLDM = ("nic0", "gpu0", "gpu1", "nic1")
RECORDED = ("rec0", "rec1")

READING = (
    *(words for name in PLDM for words in (
        ("mctp", "uuid", name), ("pldm", "info", name), ("pldm", "fru", name), ("pldm", "fw-info", name),
        ("pldm", "pdr", "list", name), ("pldm", "pdr", "show", name), ("pldm", "pdr", "dump", name),
        ("pldm", "sensors", name), ("raw", name, "pldm", "800002"))),
    *(words for name in RECORDED for words in (
        ("mctp", "uuid", name), ("pldm", "info", name), ("pldm", "fru", name), ("pldm", "fw-info", name),
        ("pldm", "sensors", name, "1"), ("raw", name, "pldm", "800002"))),
    ("pldm", "sensors", "nic0", "99"), ("pldm", "sensors", "gpu0", "1"),
    ("mctp", "uuid", "ncsi0"), ("ncsi", "discover", "ncsi0"), ("ncsi", "link", "ncsi0"),
    ("ncsi", "oem", "brcm-preboot", "get", "ncsi0"), ("ncsi", "oem", "mlx-tlv", "get", "ncsi0"),
    ("ncsi", "oem", "mlx-mac", "ncsi0"), ("ncsi", "oem", "mlx-temp", "ncsi0"),
    ("mctp", "uuid", "nvme0"), ("nvme", "health", "nvme0"), ("nvme", "identify", "controller", "nvme0"),
    ("nvme", "identify", "namespace", "nvme0", "1"),
    ("nvme", "identify", "list", "nvme0"), ("nvme", "log", "smart", "nvme0"),
    ("nvme", "log", "firmware", "nvme0"), ("nvme", "log", "sanitize", "nvme0"),
    ("nvme", "ds", "subsystem", "nvme0"), ("nvme", "ds", "port", "nvme0", "0"),
    ("nvme", "ds", "port", "nvme0", "1"), ("nvme", "ds", "controllers", "nvme0"),
    ("nvme", "ds", "controller", "nvme0", "0"), ("nvme", "ds", "commands", "nvme0"),
    ("nvme", "config", "get", "nvme0"), ("nvme", "vpd", "read", "nvme0", "--length", "256"),
    ("nvme", "feature", "get", "nvme0", "4"), ("nvme", "feature", "get", "nvme0", "14", "--length", "8"),
    ("nvme", "feature", "get", "nvme0", "4", "--select", "capabilities"), ("nvme", "ns", "list", "nvme0"),
    ("nvme", "log", "error", "nvme0"), ("nvme", "log", "smart", "nvme0", "--controller", "77"),
    ("nvme", "identify", "namespace", "nvme0", "99"),
)
# None of them changes what another one tells.
WRITING = (
    ("ncsi", "select", "ncsi0", "0"), ("ncsi", "deselect", "ncsi0", "0"),
    ("nvme", "config", "set", "nvme0", "--port", "1", "--frequency", "400"),
    ("nvme", "feature", "set", "nvme0", "4", "0x160"), ("nvme", "vpd", "write", "nvme0", "16", "0a0b"),
    ("nvme", "lockdown", "nvme0", "feature", "6"), ("nvme", "fw-commit", "nvme0", "--action", "replace", "--slot", "2"),
    ("nvme", "ns", "create", "nvme0", "--blocks", "1024"), ("nvme", "ns", "attach", "nvme0", "1"),
    ("nvme", "format", "nvme0", "1", "--lbaf", "1", "--yes"), ("nvme", "ns", "delete", "nvme0", "9", "--yes"),
    ("nvme", "sanitize", "nvme0", "crypto-erase", "--yes"),
)


def same_kind(one, other):
    """Whether two values could be of one moment and of another."""
    numbers = all(isinstance(value, (int, float)) and not isinstance(value, bool) for value in (one, other))
    return numbers or type(one) is type(other)


def differences(theirs, ours, path=""):
    """Where two documents differ, apart from what varies."""
    if isinstance(theirs, dict) and isinstance(ours, dict):
        found = [f"{path}.{key} only on one side" for key in sorted((theirs.keys() ^ ours.keys()) - AT_TIMES)]
        for key in sorted((theirs.keys() & ours.keys()) - AT_TIMES):
            unnamed = key in BOARD_KNOWS and theirs[key] == ""
            if unnamed or key in VARYING and same_kind(theirs[key], ours[key]):
                continue
            found += differences(theirs[key], ours[key], f"{path}.{key}")
        return found
    if isinstance(theirs, list) and isinstance(ours, list) and len(theirs) == len(ours):
        return [text for at, pair in enumerate(zip(theirs, ours)) for text in differences(*pair, f"{path}[{at}]")]
    return [] if theirs == ours else [f"{path}: {theirs!r}, directly {ours!r}"]


class Sideband:
    """The tool on this kernel, with a board file that gives the endpoints their names."""

    def __init__(self, program, folder, board):
        self.program, self.board = program, folder / "names.json"
        self.board.write_text(json.dumps({"name": "desk", "run_folder": str(folder / "locks"), **board}))

    def run(self, *words, seconds=60):
        """The finished command."""
        return run([self.program, "--board", self.board, "--json", *words], seconds)


def behind_the_kernel(eids):
    """What the board file says of endpoints of the kernel's MCTP."""
    return {"devices": [{"name": name, "mctp": {"net": NET, "eid": eid}} for name, eid in eids.items()]}


def compare(case, sideband, tool, words):
    """One command on both sides: exit status and document. `sideband` is strict; not with recorded devices, which
    answer nothing but what was recorded."""
    recorded = ("--lax",) if any(name in words for name in RECORDED) else ()
    through, direct = sideband.run(*recorded, *words), run([tool.program, "--json", *words])
    case.equal(f"exit status of {' '.join(words)}", through.returncode, direct.returncode)
    if through.returncode not in (0, 1):
        case.that(f"{' '.join(words)}: {through.stderr.strip()}", False)
        return
    found = differences(json.loads(through.stdout), json.loads(direct.stdout))
    case.equal(f"differences of {' '.join(words)}", found, [])


def compare_all(report, sideband, tool, title, names, commands):
    """A case for each device: all commands that name it."""
    for name in names:
        mine = [words for words in commands if name in words]
        if mine:
            with report.case(f"sideband {title} {name}: {len(mine)} commands") as case:
                for words in mine:
                    compare(case, sideband, tool, words)


def updates(case, sideband, folder):
    """Firmware for a NIC and for the drive; the simulated devices compare every byte of what they get."""
    damaged = bytearray((folder / "nic.fwpkg").read_bytes())
    damaged[-1] ^= 1
    (folder / "damaged.fwpkg").write_bytes(damaged)
    done = sideband.run("pldm", "fw-update", "nic0", str(folder / "damaged.fwpkg"), seconds=200)
    case.equal("exit status of an update with one wrong bit", done.returncode, 1)
    done = sideband.run("pldm", "fw-update", "nic0", str(folder / "nic.fwpkg"), seconds=200)
    case.equal(f"exit status of fw-update ({done.stderr.strip()[-200:]})", done.returncode, 0)
    info = json.loads(sideband.run("pldm", "fw-info", "nic0").stdout)
    case.that(f"the new version is not in {json.dumps(info)[:300]}", "22.41.1000" in json.dumps(info))
    done = sideband.run("nvme", "fw-download", "nvme0", str(folder / "drive.img"), "--commit", "replace",
                        "--slot", "2", seconds=200)
    case.equal(f"exit status of fw-download ({done.stderr.strip()[-200:]})", done.returncode, 0)
    case.equal("slot 2", json.loads(sideband.run("nvme", "log", "firmware", "nvme0").stdout)["frs2"], "ES11")


def expecting_board(folder):
    """The built-in board, whose NIC and drive know what their new firmware has to be."""
    run(["python3", ROOT / "scripts" / "make_examples.py", folder]).check_returncode()
    package = (folder / "nic.fwpkg").read_bytes()
    (folder / "nic.image").write_bytes(package[-65536:])
    board = json.loads((ROOT / "platform" / "sim" / "boards" / "default.json").read_text())
    devices = {device["name"]: device for device in board["devices"]}
    devices["nic0"]["firmware"]["components"][0]["expect_file"] = str(folder / "nic.image")
    devices["nvme0"]["drive"]["firmware"]["expect_file"] = str(folder / "drive.img")
    (folder / "expecting.json").write_text(json.dumps(board))
    return folder / "expecting.json"


def check(report, program, tool, folder, sideband_program):
    """All cases of the tool beside itself."""
    if not pathlib.Path(sideband_program).exists():
        with report.case("sideband beside sideband-sim"):
            raise Skip("sideband is not built")
        return
    for title, commands in (("reading", READING), ("writing", WRITING)):
        with Machine(program, folder) as machine:
            sideband = Sideband(sideband_program, folder, behind_the_kernel(machine.served.eids))
            compare_all(report, sideband, tool, title, ("nic0", "gpu0", "gpu1", "nic1", "rec0", "rec1", "ncsi0", "nvme0"),
                        commands)
    with report.case("sideband updates the firmware of a NIC and of a drive") as case:
        with Machine(program, folder, "--board", str(expecting_board(folder))) as machine:
            updates(case, Sideband(sideband_program, folder, behind_the_kernel(machine.served.eids)), folder)
