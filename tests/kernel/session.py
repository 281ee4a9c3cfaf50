# SPDX-License-Identifier: Apache-2.0
"""What surrounds a command of `sideband` on a kernel: a tap on the line, progress in a file, Ctrl-C."""
import json
import pathlib
import signal
import subprocess
import sys
import time

from machine import OWN_EID, ROOT, Machine, run, wait_until
from report import Skip
from same_tool import Sideband, behind_the_kernel, expecting_board

sys.path.insert(0, str(ROOT / "tests" / "checks"))
import pcapng  # noqa: E402  pylint: disable=wrong-import-position


# Percent at which an update has begun to change the device.
UNDER_WAY = 20


def capture(case, sideband, machine, folder):
    """The tap sees both sides of an exchange as the kernel passes them."""
    file = folder / "tap.pcapng"
    done = run([sideband.program, "--board", sideband.board, "--capture", file, "--json", "raw", "nic0",
                "pldm", "800002"])
    case.equal(f"exit status of a captured command ({done.stderr.strip()[-200:]})", done.returncode, 0)
    packets = pcapng.read(file)
    eid = machine.eid("nic0")
    # GetTID: type, Rq, PLDM type, command. The tool puts an instance ID of its own in.
    asked = [p for p in packets if p.dest == eid and p.payload[:1] == b"\x01" and p.payload[2:4] == b"\x00\x02"]
    case.equal("requests in the capture", len(asked), 1)
    case.that("the request is outgoing", asked[0].outgoing)
    case.equal("who asked", asked[0].source, OWN_EID)
    case.that("the request has the tag owner bit, SOM and EOM",
              asked[0].tag_owner and asked[0].start and asked[0].end)
    answers = [p for p in packets if p.source == eid and p.tag == asked[0].tag and not p.tag_owner]
    case.equal("answers in the capture", len(answers), 1)
    case.that("the answer is not outgoing", not answers[0].outgoing)
    case.equal("command and completion code of the answer", answers[0].payload[2:5], b"\x00\x02\x00")
    case.equal("the interface", answers[0].interface, machine.line.interface)


def update_in_the_background(sideband, folder):
    """An update of nic0 in a process of its own, and the folder of its progress file."""
    progress = pathlib.Path(folder / "locks")
    for file in progress.glob("task-*"):
        file.unlink()
    process = subprocess.Popen(
        [str(sideband.program), "--board", str(sideband.board), "pldm", "fw-update", "nic0",
         str(folder / "nic.fwpkg")],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    return process, progress


def percentages(process, folder):
    """Each percentage that the progress file had while the update ran."""
    seen = []
    while process.poll() is None:
        for file in folder.glob("task-*"):
            try:
                text = file.read_text()
            except FileNotFoundError:
                continue
            if "." not in file.name and (not seen or seen[-1] != text):
                seen.append(text)
        time.sleep(0.01)
    return seen


def percentage(folder):
    """What the progress file says now; 0 if there is none."""
    for file in folder.glob("task-*"):
        if "." not in file.name:
            return int(file.read_text())
    return 0


def progress(case, sideband, folder):
    """The file has a whole number at any time, and it grows to the end."""
    process, where = update_in_the_background(sideband, folder)
    seen = percentages(process, where)
    _, error = process.communicate(timeout=60)
    case.equal(f"exit status of the update ({error.strip()[-200:]})", process.returncode, 0)
    case.that(f"progress shows more than one step: {seen}", len(seen) > 2)
    case.that(f"each is a number and a line end: {seen}",
              all(text.endswith("\n") and text[:-1].isdigit() for text in seen))
    numbers = [int(text) for text in seen]
    case.equal("progress only grows", numbers, sorted(numbers))


def interrupt(case, sideband, folder):
    """Ctrl-C cancels the update on the card; the PLDM type is free again and an update works."""
    process, where = update_in_the_background(sideband, folder)
    began = wait_until(lambda: percentage(where) >= UNDER_WAY, 30)
    case.that("the update began", began and process.poll() is None)
    process.send_signal(signal.SIGINT)
    _, error = process.communicate(timeout=60)
    case.equal(f"exit status after Ctrl-C ({error.strip()[-200:]})", process.returncode, 1)
    case.that(f"the error says what became of it: {error.strip()[-200:]}", "update mode" in error)
    info = json.loads(sideband.run("pldm", "fw-info", "nic0").stdout)
    case.that("the card has its old version", "22.41.1000" not in json.dumps(info))
    done = sideband.run("pldm", "fw-update", "nic0", str(folder / "nic.fwpkg"), seconds=200)
    case.equal(f"exit status of the next update ({done.stderr.strip()[-200:]})", done.returncode, 0)


def check(report, program, folder, sideband_program):
    """All cases of this file."""
    if not pathlib.Path(sideband_program).exists():
        with report.case("sideband: capture, progress, Ctrl-C"):
            raise Skip("sideband is not built")
        return
    board = str(expecting_board(folder))
    with Machine(program, folder) as machine:
        sideband = Sideband(sideband_program, folder, behind_the_kernel(machine.served.eids))
        with report.case("sideband --capture: a tap on the kernel's line") as case:
            capture(case, sideband, machine, folder)
    for title, act in (("progress in a file", progress), ("Ctrl-C during an update", interrupt)):
        with report.case(f"sideband: {title}") as case:
            with Machine(program, folder, "--board", board) as machine:
                act(case, Sideband(sideband_program, folder, behind_the_kernel(machine.served.eids)), folder)
