#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that the judge of ports finds what a port breaks, and nothing in one that is sound.

usage: judge_test.py --judge PROGRAM --broken PORT [--sim PORT] [--linux PORT]
                     [--template PORT --toy PORT --read-toy PROGRAM --judged-toy PROGRAM] --half 0|1

The broken port breaks the rule that SIDEBAND_BROKEN names. The first half of the tests takes every other
rule, the second half the rest and the sound ports.
"""
import argparse
import concurrent.futures
import json
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests" / "checks"))
import headers_text  # noqa: E402

ARGUMENTS = argparse.Namespace()
# What the board in memory has.
BOARD = ["--device", "i2c:1:0x40:00", "--other", "i2c:1:0x40:01", "--absent", "i2c:1:0x50", "--wait-limit", "500",
         "--shared", "--shell"]
SIM = ["--open", "sideband_sim_open", "--absent", "i2c:3:0x7e"]
# What does not apply to records of one service, and without a device.
ONE_SERVICE = ["processes-exclusive", "processes-killed", "shell"]
NEED_A_DEVICE = ["write-with-pec", "write-as-given", "read-block", "read-whole", "read-kept", "read-queue",
                 "mux-switches", "exchange", "message", "storm", "threads"]
MOST_SECONDS = 200


def run(port, *options, **environment):
    with tempfile.TemporaryDirectory() as folder:
        environment = {**os.environ, "SIDEBAND_RECORDS": f"{folder}/records", "SIDEBAND_RUN_FOLDER": f"{folder}/run",
                       "TMPDIR": folder, **environment}
        return subprocess.run([ARGUMENTS.judge, *options, *([port] if port else [])], capture_output=True, text=True,
                              env=environment, timeout=MOST_SECONDS, check=False)


def soon(condition):
    """Waits until something is so, for half a minute at most."""
    deadline = time.monotonic() + 30
    while not condition() and time.monotonic() < deadline:
        time.sleep(0.01)
    return condition()


def runs(process):
    """Whether a process is there, and no zombie that nobody has waited for."""
    try:
        return pathlib.Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except (FileNotFoundError, ProcessLookupError):
        return False


def rules():
    return [rule["name"] for rule in json.loads(run("", "--list", "--json").stdout)]


def judged(port, *options, **environment):
    """What the judge says of a port: names by result, its exit status, and why rules failed."""
    done = run(port, "--json", *options, **environment)
    document = json.loads(done.stdout)
    why = [f"{rule['name']}: {rule['why']}" for rule in document["rules"] if rule["result"] == "failed"]
    names = {"passed": [], "failed": [], "not applicable": []}
    for rule in document["rules"]:
        names[rule["result"]].append(rule["name"])
    for result, found in names.items():
        assert document[result.replace(" ", "_")] == len(found), document
    return names, done.returncode, why


class Judge(unittest.TestCase):
    def test_each_rule_is_failed_alone_by_the_port_that_breaks_it(self):
        names = rules()
        self.assertGreater(len(names), 40)
        mine = names[int(ARGUMENTS.half)::2]
        # A run is mostly waiting.
        with concurrent.futures.ThreadPoolExecutor(3) as pool:
            judgements = pool.map(lambda name: judged(ARGUMENTS.broken, *BOARD, SIDEBAND_BROKEN=name), mine)
            for name, (found, status, told) in zip(mine, judgements):
                with self.subTest(rule=name):
                    self.assertEqual((found["failed"], status), ([name], 1), told)


class Sound(unittest.TestCase):
    """Ports that keep every rule that applies to them."""

    def assert_sound(self, expected, port, *options, **environment):
        found, status, told = judged(port, *options, **environment)
        self.assertEqual((found["failed"], found["not applicable"], status), ([], expected, 0), told)

    def test_the_board_in_memory_keeps_every_rule(self):
        self.assert_sound([], ARGUMENTS.broken, *BOARD)

    def test_the_simulated_board(self):
        self.assert_sound(ONE_SERVICE + ["mux-switches"], ARGUMENTS.sim, *SIM, "--device", "i2c:3:0x9e")
        self.assert_sound(ONE_SERVICE, ARGUMENTS.sim, *SIM, "--device", "i2c:2:0x3a:01e002", "--other",
                          "i2c:2:0x64:01e001")

    def test_a_linux_machine_without_a_bus(self):
        self.assert_sound(NEED_A_DEVICE, ARGUMENTS.linux, "--absent", "i2c:200:0x7e", "--shared", "--shell")

    def test_the_port_to_copy(self):
        self.assert_sound(ONE_SERVICE[:2] + ["power-allows", "pcie-session", *NEED_A_DEVICE], ARGUMENTS.template,
                          "--absent", "i2c:1:0x50", "--shell")

    def test_the_toy_port(self):
        expected = [*ONE_SERVICE, "pcie-session", "mux-switches", "message"]
        options = ["--device", "i2c:1:0x40", "--absent", "i2c:1:0x50"]
        self.assert_sound(expected, ARGUMENTS.toy, *options)
        linked = subprocess.run([ARGUMENTS.judged_toy, *options], capture_output=True, text=True, check=False)
        self.assertEqual(linked.returncode, 0, linked)
        self.assertRegex(linked.stdout, rf"\n\d+ passed, 0 failed, {len(expected)} not applicable\n$")

    def test_the_toy_has_a_temperature(self):
        done = subprocess.run([ARGUMENTS.read_toy], capture_output=True, text=True, check=True)
        self.assertTrue(done.stdout.endswith("EID 29: 21.6 degC\n"), done.stdout)


class Telling(unittest.TestCase):
    """What the judge prints, and what it takes."""

    def test_rules_need_such_as_come_before_them(self):
        before = []
        for rule in json.loads(run("", "--list", "--json").stdout):
            self.assertLessEqual(set(rule["needs"].split()), set(before), rule)
            self.assertNotIn(rule["name"], before)
            self.assertTrue(rule["demand"] and rule["look"], rule)
            before.append(rule["name"])

    def test_a_failure_tells_what_to_look_at(self):
        done = run(ARGUMENTS.broken, "--only", "crc8", SIDEBAND_BROKEN="crc8")
        self.assertEqual(done.returncode, 1)
        self.assertIn('FAILED  crc8: CRC8Gen() makes 0xa1 of "123456789", not 0xf4\n', done.stdout)
        self.assertRegex(done.stdout, r"\n        demanded: .+\n        look at: .+\n")
        self.assertTrue(done.stdout.endswith("1 passed, 1 failed, 0 not applicable\n"), done.stdout)

    def test_a_wait_that_ends_but_too_late_is_found(self):
        done = run(ARGUMENTS.broken, "--only", "locks-wait", SIDEBAND_BROKEN="locks-wait, a little")
        self.assertRegex(done.stdout, r"FAILED  locks-wait: global_lock: a wait of 0 ms takes [5-9]\d\d ms each time\n")
        self.assertEqual(done.returncode, 1)

    def test_what_a_rule_needs_is_judged_with_it(self):
        done = run(ARGUMENTS.broken, "--only", "locks-apart")
        self.assertEqual(done.stdout, "passed  attach\npassed  locks-granted\npassed  locks-apart\n"
                                      "3 passed, 0 failed, 0 not applicable\n")

    def test_a_crash_fails_the_rule_alone(self):
        done = run(ARGUMENTS.broken, "--only", "progress", SIDEBAND_BROKEN="progress")
        self.assertIn("FAILED  progress: the process died of signal 6", done.stdout)

    def test_a_port_that_hangs_does_not_outlive_the_judge(self):
        with tempfile.TemporaryDirectory() as folder:
            judge = subprocess.Popen([ARGUMENTS.judge, "--only", "attach", ARGUMENTS.broken], stdout=subprocess.DEVNULL,
                                     env={**os.environ, "SIDEBAND_RECORDS": f"{folder}/records",
                                          "SIDEBAND_BROKEN": "ending"})
            children = pathlib.Path(f"/proc/{judge.pid}/task/{judge.pid}/children")
            self.assertTrue(soon(lambda: children.read_text().split()), "no rule runs")
            rule = children.read_text().split()[0]
            judge.send_signal(signal.SIGINT)
            self.assertEqual(judge.wait(MOST_SECONDS), -signal.SIGINT)
            self.assertTrue(soon(lambda: not runs(rule)), "the rule runs on")

    def test_wrong_usage_and_no_port_end_with_2(self):
        for options, said in ((["--device", "i2c:1"], "--device does not take 'i2c:1'"),
                              (["--device", "i2c:1:0x41"], "--device does not take"),
                              (["--rounds", "0"], "--rounds does not take '0'"),
                              (["--rounds", "1000001"], "--rounds does not take '1000001'"),
                              (["--wait-limit", "1000001"], "--wait-limit does not take '1000001'"),
                              (["--nothing"], "unknown option --nothing"),
                              (["--only", "nothing"], "no rule nothing"),
                              (["--open", "nothing"], "does not define nothing"),
                              (["one-more"], "more than one port")):
            done = run(ARGUMENTS.broken, *options)
            self.assertEqual((done.returncode, done.stdout), (2, ""), done)
            self.assertIn(said, done.stderr)
        done = run("/nowhere/port.so")
        self.assertEqual(done.returncode, 2)
        self.assertIn("/nowhere/port.so", done.stderr)

    def test_what_a_port_does_not_define_is_named(self):
        done = run("")
        self.assertEqual(done.returncode, 2)
        self.assertTrue(done.stderr.startswith("sideband-porttest: this program: does not define "), done.stderr)
        missing = {line.rpartition(" ")[2] for line in done.stderr.splitlines()}
        header = (ROOT / "include" / "sideband" / "platform.h").read_text(encoding="utf-8")
        self.assertEqual(missing, headers_text.declared_names(header))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--judge", required=True)
    parser.add_argument("--broken", required=True)
    parser.add_argument("--sim")
    parser.add_argument("--linux")
    for name in ("--template", "--toy", "--read-toy", "--judged-toy"):
        parser.add_argument(name)
    parser.add_argument("--half", required=True, choices="01")
    parser.parse_args(namespace=ARGUMENTS)
    suite = unittest.TestSuite()
    loader = unittest.TestLoader()
    suite.addTests(loader.loadTestsFromTestCase(Judge))
    if ARGUMENTS.half == "1":
        suite.addTests(loader.loadTestsFromTestCase(Telling))
        suite.addTest(Sound("test_the_board_in_memory_keeps_every_rule"))
        if ARGUMENTS.sim:
            suite.addTest(Sound("test_the_simulated_board"))
        if ARGUMENTS.linux:
            suite.addTest(Sound("test_a_linux_machine_without_a_bus"))
        if ARGUMENTS.toy:
            for name in ("test_the_port_to_copy", "test_the_toy_port", "test_the_toy_has_a_temperature"):
                suite.addTest(Sound(name))
    return 0 if unittest.TextTestRunner(verbosity=2).run(suite).wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
