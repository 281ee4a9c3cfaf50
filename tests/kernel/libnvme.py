# SPDX-License-Identifier: Apache-2.0
"""libnvme's management calls on the served drive, made by mi_client.c, beside what sideband-sim says of it."""
import json

from machine import NET, Machine, run

INVALID_PARAMETER = 0x04
# libnvme's word for a status: bits 0 to 7 code, 8 to 10 type, 13 "more", 14 "do not retry"; from bit 27 on
# whose status it is.
STATUS_MASK = 0x7FF


def client(program, eid, what):
    """The document of one run of mi_client."""
    done = run([program, NET, eid, what])
    if done.returncode != 0:
        raise RuntimeError(f"mi_client {what}: {done.stderr.strip()}")
    return json.loads(done.stdout)


def expect(case, document, step, **values):
    """A step that succeeded, and what it told."""
    case.equal(step, document[step], {"status": 0, **values})


def fields(document, *apart):
    """What the tool tells, without the name of the endpoint and what else the other side does not repeat."""
    return {key: value for key, value in document.items() if key not in ("endpoint", *apart)}


def compare_structures(case, said, tool):
    """Read NVMe-MI Data Structure."""
    expect(case, said, "subsystem", **fields(tool.ask("nvme", "ds", "subsystem", "nvme0")))
    for port in (0, 1):
        ours = fields(tool.ask("nvme", "ds", "port", "nvme0", str(port)))
        theirs = dict(said[f"port {port}"])
        case.equal(f"port {port} status", theirs.pop("status"), 0)
        for key, value in theirs.items():
            case.equal(f"port {port} {key}", value, ours[key])
    controllers = tool.ask("nvme", "ds", "controllers", "nvme0")["controllers"]
    expect(case, said, "controllers", count=len(controllers), first=controllers[0])
    expect(case, said, "scan", count=len(controllers))
    ours = tool.ask("nvme", "ds", "controller", "nvme0", "0")
    expect(case, said, "controller", **fields(ours, "controller"))
    identity = tool.ask("nvme", "identify", "controller", "nvme0")
    expect(case, said, "identify", **{key: identity[key] for key in ("sn", "mn", "fr", "nn")})


def compare_health(case, said, tool):
    """NVM Subsystem Health Status Poll; what moves with time is held against the drive's waveform."""
    theirs, ours = dict(said["health"]), tool.ask("nvme", "health", "nvme0")
    case.equal("status", theirs.pop("status"), 0)
    temperature, changes = theirs.pop("ctemp"), theirs.pop("ccs")
    case.that(f"{temperature} degC is not within the waveform", 34 <= temperature <= 47)
    # The drive is ready from the start; its temperature may have changed since.
    case.equal("changes but that of temperature", changes & ~0x200, ours["ccs"] & ~0x200)
    for key, value in theirs.items():
        case.equal(key, value, ours[key])


def compare_configuration(case, said, tool):
    """Configuration Get."""
    for port in tool.ask("nvme", "config", "get", "nvme0")["ports"]:
        number = port["port"]
        frequency = port["smbus_i2c_frequency"]
        if frequency is None:
            case.equal(f"frequency of port {number}", said[f"frequency {number} now"]["status"],
                       INVALID_PARAMETER)
        else:
            expect(case, said, f"frequency {number} now", value=frequency)
        expect(case, said, f"unit size {number} now", value=port["mctp_transmission_unit_size"])


def write_configuration(case, said):
    """Configuration Set, read back each time."""
    for when, frequency, unit in (("before", 1, 64), ("set", 2, 128), ("kept", 2, 128), ("restored", 1, 64)):
        expect(case, said, f"frequency 1 {when}", value=frequency)
        expect(case, said, f"unit size 1 {when}", value=unit)
    for step in ("set frequency", "set unit size", "restore frequency", "restore unit size"):
        expect(case, said, step)
    case.equal("unit size of one byte", said["set bad unit size"]["status"], INVALID_PARAMETER)
    expect(case, said, "clear health changes")
    case.equal("changes behind the clearing", said["health cleared"]["ccs"], 0)


def write_namespaces(case, said):
    """A namespace created, attached, formatted, detached and deleted."""
    expect(case, said, "create", nsid=2)
    for step in ("attach", "format", "detach", "delete"):
        expect(case, said, step)
    for when, active, allocated in (("before", [1], [1]), ("created", [1], [1, 2]),
                                    ("attached", [1, 2], [1, 2]), ("deleted", [1], [1])):
        expect(case, said, f"active {when}", ids=active)
        expect(case, said, f"allocated {when}", ids=allocated)
    expect(case, said, "new namespace", nsze=2048, ncap=2048, flbas=0)
    expect(case, said, "formatted namespace", nsze=256, ncap=256, flbas=1)
    case.equal("attached twice", said["attach again"]["status"] & STATUS_MASK, 0x118)
    case.equal("no such format", said["format with no such format"]["status"] & STATUS_MASK, 0x10A)


def compare_features(case, said, tool):
    """Set Features by one side, Get Features by the same; the first value is what the tool tells."""
    ours = tool.ask("nvme", "feature", "get", "nvme0", "4")["dword0"]
    expect(case, said, "feature before", value=ours)
    expect(case, said, "set feature")
    expect(case, said, "feature set", value=0x160)
    expect(case, said, "restore feature")
    expect(case, said, "feature restored", value=ours)


def compare_security(case, said, tool):
    """The drive has no security commands: it says so in Identify, and refuses them as such."""
    case.equal("security in OACS", tool.ask("nvme", "identify", "controller", "nvme0")["oacs"] & 1, 0)
    for step in ("security receive", "security send"):
        status = said[step]["status"]
        case.equal(f"{step}: whose status", status >> 27, 0)
        case.equal(step, status & STATUS_MASK, 0x01)


def check(report, program, tool, folder, mi_client):
    """All cases of libnvme."""
    with Machine(program, folder) as machine:
        eid = machine.eid("nvme0")
        said = {}
        with report.case("libnvme scan and data structures") as case:
            said = client(mi_client, eid, "read")
            compare_structures(case, said, tool)
        for name, compare in (("health status poll", compare_health),
                              ("configuration get", compare_configuration)):
            with report.case(f"libnvme {name}") as case:
                compare(case, said, tool)
        with report.case("libnvme configuration set") as case:
            said = client(mi_client, eid, "write")
            write_configuration(case, said)
        with report.case("libnvme namespace created, attached, formatted, deleted") as case:
            write_namespaces(case, said)
        with report.case("libnvme features") as case:
            compare_features(case, said, tool)
        with report.case("libnvme security") as case:
            compare_security(case, said, tool)
