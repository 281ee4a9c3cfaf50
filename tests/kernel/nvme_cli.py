# SPDX-License-Identifier: Apache-2.0
"""nvme-cli on the served drive: every field that it shows, beside what sideband-sim says of the same drive."""
import json
import re

from machine import NET, ROOT, Machine, run, wait_until

# What nvme-cli calls a field, and sideband, where they differ.
SMART_NAMES = {"avail_spare": "available_spare", "spare_thresh": "available_spare_threshold",
               "percent_used": "percentage_used",
               "endurance_grp_critical_warning_summary": "endurance_group_critical_warning_summary"}
SANITIZE_NAMES = {"cdw10_info": "scdw10", "time_over_write": "eto", "time_block_erase": "etbe",
                  "time_crypto_erase": "etce", "time_over_write_no_dealloc": "etond",
                  "time_block_erase_no_dealloc": "etbend", "time_crypto_erase_no_dealloc": "etcend"}
# Fields that only nvme-cli shows. They are zero on this drive, which the case checks.
CONTROLLER_EXTRA = ("domainid", "megcap", "maxdna", "maxcna", "ioccsz", "iorcsz", "icdoff", "fcatt",
                    "msdbd", "ofcs")
NAMESPACE_EXTRA = ("mssrl", "mcl", "msrc", "nulbaf")
# Fields that nvme-cli shows only if the namespace features say that they mean something.
OPTIONAL_PERFORMANCE = ("npwg", "npwa", "npdg", "npda", "nows")
# Features that the drive has and features that it has not.
FEATURES = (0x01, 0x02, 0x04, 0x05, 0x06, 0x07, 0x0B)
NO_FEATURES = (0x08, 0x10, 0x7E)
SELECTIONS = {0: "current", 1: "default", 2: "saved"}


class NvmeCli:
    """The program `nvme` on one drive."""

    def __init__(self, eid):
        self.device = f"mctp:{NET},{eid}"

    def run(self, command, *words):
        """The finished command."""
        return run(["nvme", command, self.device, *words])

    def ask(self, command, *words):
        """What it printed; it must succeed."""
        done = self.run(command, *words)
        if done.returncode != 0:
            raise RuntimeError(f"nvme {command}: {done.stderr.strip() or done.stdout.strip()}")
        return done.stdout

    def document(self, command, *words):
        """The same as JSON; some commands put it below the name of the device."""
        document = json.loads(self.ask(command, *words, "-o", "json"))
        return document.get(self.device, document)

    def refused(self, command, *words):
        """(status code type, status code) of a command that the drive must refuse."""
        done = self.run(command, *words)
        status = re.search(r"\(0x([0-9a-f]+)\)\s*$", done.stderr.strip())
        if done.returncode == 0 or not status:
            raise RuntimeError(f"nvme {command} ended with {done.returncode}: {done.stderr.strip()}")
        value = int(status.group(1), 16)
        return value >> 8 & 7, value & 0xFF


def plain(value):
    """nvme-cli writes large numbers as text, fills text with blanks and puts hyphens into identifiers."""
    if not isinstance(value, str):
        return value
    value = value.strip()
    if re.fullmatch(r"[0-9]+", value) and len(value) < 32:
        return int(value)
    return value.replace("-", "") if re.fullmatch(r"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}", value) else value


def compare_fields(case, theirs, ours, names=None, apart=()):
    """Every field of either side but those `apart`."""
    ours = {key: value for key, value in ours.items() if key not in ("endpoint", *apart)}
    for key, value in theirs.items():
        name = (names or {}).get(key, key)
        if name in apart:
            continue
        if name not in ours:
            case.that(f"{key}: sideband does not tell it", False)
            continue
        case.equal(key, plain(value), plain(ours.pop(name)))
    for name in ours:
        case.that(f"{name}: nvme does not tell it", False)


def compare_controller(case, nvme, tool):
    """Identify Controller."""
    theirs = nvme.document("id-ctrl")
    for key in CONTROLLER_EXTRA:
        case.equal(key, plain(theirs.pop(key)), 0)
    states = theirs.pop("psds")
    case.equal("number of power states", len(states), theirs["npss"] + 1)
    compare_fields(case, theirs, tool.ask("nvme", "identify", "controller", "nvme0"))


def compare_namespace(case, nvme, tool):
    """Identify Namespace."""
    theirs = nvme.document("id-ns", "-n", "1")
    ours = tool.ask("nvme", "identify", "namespace", "nvme0", "1")
    for key in NAMESPACE_EXTRA:
        case.equal(key, plain(theirs.pop(key)), 0)
    case.equal("optional performance fields", theirs["nsfeat"] >> 4 & 1, 0)
    formats = [{"ms": lbaf["ms"], "lbads": lbaf["ds"], "rp": lbaf["rp"]} for lbaf in theirs.pop("lbafs")]
    case.equal("LBA formats", formats, ours.pop("lbaf"))
    compare_fields(case, theirs, ours, apart=("nsid", *OPTIONAL_PERFORMANCE))
    names = nvme.document("ns-descs", "-n", "1")["ns-descs"]
    case.equal("namespace descriptors", [(name["type"], name["eui64"]) for name in names],
               [("eui64", ours["eui64"])])


def compare_smart(case, nvme, tool):
    """SMART / Health Information. The temperature moves between the two sides' bounds."""
    moving = ("temperature", "temperature_sensor_1")
    for words in ((), ("-n", "1")):
        theirs = nvme.document("smart-log", *words)
        compare_fields(case, theirs, tool.ask("nvme", "log", "smart", "nvme0"), SMART_NAMES, moving)
        for name in moving:
            case.that(f"{name}: {theirs[name]} K is not within the waveform of 34 to 47 degC",
                      307 <= theirs[name] <= 320)


def compare_firmware(case, nvme, tool):
    """Firmware Slot Information: nvme-cli shows a slot that holds something, as a number of eight bytes."""
    theirs = nvme.document("fw-log")
    ours = tool.ask("nvme", "log", "firmware", "nvme0")
    case.equal("afi", theirs["Active Firmware Slot (afi)"], ours["afi"])
    for slot in range(1, 8):
        shown = theirs.get(f"Firmware Rev Slot {slot}", "0 ()")
        revision = int(shown.split()[0]).to_bytes(8, "little").rstrip(b" \0").decode()
        case.equal(f"slot {slot}", revision, ours[f"frs{slot}"])


def compare_lists(case, nvme, tool):
    """Namespaces and controllers."""
    ours = tool.ask("nvme", "identify", "list", "nvme0")
    for words in ((), ("--all",)):
        theirs = [entry["nsid"] for entry in nvme.document("list-ns", *words)["nsid_list"]]
        case.equal(" ".join(("list-ns", *words)), theirs, ours["active_namespaces"])
    for words in ((), ("-n", "1")):
        document = nvme.document("list-ctrl", *words)
        theirs = [entry["ctrl_id"] for entry in document["ctrl_list"]]
        case.equal(" ".join(("list-ctrl", *words)), theirs, ours["controllers"])
        case.equal("num_ctrl", document["num_ctrl"], len(ours["controllers"]))


def compare_sanitize(case, nvme, tool):
    """Sanitize Status."""
    theirs = nvme.document("sanitize-log")
    ours = tool.ask("nvme", "log", "sanitize", "nvme0")
    state = theirs.pop("sstat")
    told = state["global_erased"] << 8 | state["no_cmplted_passes"] << 3 | int(state["status"][1])
    case.equal("sstat", told, ours["sstat"])
    compare_fields(case, theirs, ours, SANITIZE_NAMES, ("sstat",))


def compare_features(case, nvme, tool):
    """Get Features: current, default and saved values, what a feature can do, and those that there are not."""
    for feature in FEATURES:
        for number, word in SELECTIONS.items():
            text = nvme.ask("get-feature", "-f", str(feature), "-n", "1", "-s", str(number))
            value = re.search(rf"get-feature:{feature:#04x} .*value:(?:0x)?([0-9a-f]+)", text)
            ours = tool.ask("nvme", "feature", "get", "nvme0", str(feature), "--select", word)
            case.equal(f"feature {feature:#04x} {word}", value and int(value.group(1), 16), ours["dword0"])
        text = nvme.ask("get-feature", "-f", str(feature), "-n", "1", "-s", "3", "-H")
        ours = tool.ask("nvme", "feature", "get", "nvme0", str(feature), "--select", "capabilities")
        abilities = ("Feature is saveable" in text) | ("Feature is changeable" in text) << 2
        case.equal(f"feature {feature:#04x} capabilities", abilities, ours["dword0"])
    for feature in NO_FEATURES:
        theirs = nvme.refused("get-feature", "-f", str(feature), "-n", "1")
        ours = tool.refused("nvme", "feature", "get", "nvme0", str(feature))
        case.equal(f"feature {feature:#04x}", theirs, (ours["status_code_type"], ours["status_code"]))


def compare_refusals(case, nvme, tool):
    """Commands that the drive refuses, alike to both."""
    pairs = (
        (("id-ns", "-n", "99"), ("identify", "namespace", "nvme0", "99")),
        (("format", "-n", "1", "-l", "9", "-f"), ("format", "nvme0", "1", "--lbaf", "9", "--yes")),
        (("attach-ns", "-n", "1", "-c", "0"), ("ns", "attach", "nvme0", "1")),
        (("detach-ns", "-n", "9", "-c", "0"), ("ns", "detach", "nvme0", "9")),
        (("delete-ns", "-n", "9"), ("ns", "delete", "nvme0", "9", "--yes")),
        (("fw-commit", "-s", "2", "-a", "0"), ("fw-commit", "nvme0", "--slot", "2", "--action", "replace")),
    )
    for theirs, ours in pairs:
        error = tool.refused("nvme", *ours)
        case.equal("nvme " + " ".join(theirs), nvme.refused(*theirs),
                   (error["status_code_type"], error["status_code"]))


def compare_errors(case, nvme, tool):
    """Error Information: first none; then the newest entry is of a command that failed, as on the other side."""
    case.equal("errors to begin with", tool.ask("nvme", "log", "error", "nvme0")["errors"], [])
    before = nvme.document("error-log", "-e", "64")["errors"]
    case.equal("entries", len(before), 64)
    kept = sum(entry["error_count"] != 0 for entry in before)
    nvme.refused("id-ns", "-n", "99")
    newest = nvme.document("error-log", "-e", "2")["errors"]
    count = nvme.document("smart-log")["num_err_log_entries"]
    case.equal("number of errors", int(count), kept + 1)
    case.equal("count of the newest", newest[0]["error_count"], kept + 1)
    case.equal("status of the newest", newest[0]["status_field"] & 0x7FF, 0x0B)
    case.equal("namespace of the newest", newest[0]["nsid"], 99)


def write_namespaces(case, nvme):
    """A namespace from its creation to its end."""
    text = nvme.ask("create-ns", "-s", "4096", "-c", "4096", "-f", "0")
    case.equal("create-ns", text.strip(), "create-ns: Success, created nsid:2")
    allocated = [entry["nsid"] for entry in nvme.document("list-ns", "--all")["nsid_list"]]
    case.equal("allocated", allocated, [1, 2])
    case.equal("active", nvme.document("list-ns")["nsid_list"], [{"nsid": 1}])
    nvme.ask("attach-ns", "-n", "2", "-c", "0")
    case.equal("attached", nvme.document("list-ns")["nsid_list"], [{"nsid": 1}, {"nsid": 2}])
    case.equal("its controllers", nvme.document("list-ctrl", "-n", "2")["ctrl_list"], [{"ctrl_id": 0}])
    space = nvme.document("id-ns", "-n", "2")
    case.equal("its size", (space["nsze"], space["flbas"]), (4096, 0))
    nvme.ask("format", "-n", "2", "-l", "1", "-f")
    space = nvme.document("id-ns", "-n", "2")
    case.equal("formatted with 4096 bytes", (space["nsze"], space["flbas"]), (512, 1))
    nvme.ask("detach-ns", "-n", "2", "-c", "0")
    nvme.ask("delete-ns", "-n", "2")
    allocated = [entry["nsid"] for entry in nvme.document("list-ns", "--all")["nsid_list"]]
    case.equal("left", allocated, [1])


def write_firmware(case, nvme, folder):
    """An image of 4096-byte pieces, committed into a slot."""
    run(["python3", ROOT / "scripts" / "make_examples.py", folder]).check_returncode()
    nvme.ask("fw-download", "-f", str(folder / "drive.img"), "-x", "4096")
    nvme.ask("fw-commit", "-s", "2", "-a", "0")
    log = nvme.document("fw-log")
    case.equal("afi", log["Active Firmware Slot (afi)"], 1)
    case.that(f"slot 2 holds {log.get('Firmware Rev Slot 2')}", "ES11" in log.get("Firmware Rev Slot 2", ""))
    case.equal("commit of nothing", nvme.refused("fw-commit", "-s", "3", "-a", "0"), (1, 0x07))


def write_sanitize(case, nvme):
    """A sanitize operation from its begin to its end, and what has to wait for it."""
    nvme.ask("sanitize", "-a", "4")
    state = nvme.document("sanitize-log")
    case.equal("its state", state["sstat"]["status"][:3], "(2)")
    case.that(f"progress {state['sprog']}", state["sprog"] < 65535)
    case.equal("a format meanwhile", nvme.refused("format", "-n", "1", "-l", "0", "-f"), (0, 0x1D))
    case.that("it does not end", wait_until(
        lambda: nvme.document("sanitize-log")["sstat"]["status"].startswith("(1)"), 30))
    case.equal("progress at the end", nvme.document("sanitize-log")["sprog"], 65535)
    case.equal("use of the namespace", nvme.document("id-ns", "-n", "1")["nuse"], 0)


def check(report, program, tool, folder):
    """All cases of nvme-cli, each state-changing one behind those that compare."""
    with Machine(program, folder) as machine:
        nvme = NvmeCli(machine.eid("nvme0"))
        for name, compare in (
                ("id-ctrl", compare_controller), ("id-ns and ns-descs", compare_namespace),
                ("smart-log", compare_smart), ("fw-log", compare_firmware),
                ("list-ns and list-ctrl", compare_lists), ("sanitize-log", compare_sanitize),
                ("get-feature", compare_features), ("error-log", compare_errors),
                ("refusals", compare_refusals)):
            with report.case(f"nvme-cli {name}") as case:
                compare(case, nvme, tool)
        with report.case("nvme-cli create-ns, attach-ns, format, detach-ns, delete-ns") as case:
            write_namespaces(case, nvme)
        with report.case("nvme-cli fw-download and fw-commit") as case:
            write_firmware(case, nvme, folder)
        with report.case("nvme-cli sanitize") as case:
            write_sanitize(case, nvme)
