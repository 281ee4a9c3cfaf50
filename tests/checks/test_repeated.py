#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that the checks of what pages repeat from other files find what they look for."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent


class CopiedPage(unittest.TestCase):
    """SCRIPT, on copies of PAGE and of what it repeats, RECORDS."""

    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)

    def page(self, old="", new="", *options):
        """(passed, what the check says of the page with one text in the place of another)"""
        for source in (file for name in (self.PAGE, *self.RECORDS) for file in ROOT.glob(name)):
            path = self.root / source.relative_to(ROOT)
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(source.read_bytes())
        page = self.root / self.PAGE
        told = page.read_text(encoding="utf-8")
        self.assertIn(old, told)
        page.write_text(told.replace(old, new, 1), encoding="utf-8")
        done = subprocess.run([sys.executable, HERE / self.SCRIPT, *options, self.root], capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.stderr, "")
        return done.returncode == 0, done.stdout


class PerformancePage(CopiedPage):
    """performance_page.py, on a copy of the page and of what was recorded."""

    SCRIPT, PAGE, RECORDS = "performance_page.py", "docs/performance.md", ("bench/budgets.json",)

    def test_accepts_what_is_right(self):
        passed, said = self.page()
        self.assertTrue(passed, said)

    def test_finds_each_wrong_figure(self):
        for old, new in (("| sensor | socket | ", "| sensor | socket | 9"), ("| package | - | ", "| package | - | 1,"),
                         ("| `nvme_fw_image_download` | ", "| `nvme_fw_image_download` | 1"),
                         ("stripped: **", "stripped: **1"), (" initialised and ", "0 initialised and ")):
            passed, said = self.page(old, new)
            self.assertFalse(passed, said)

    def test_finds_what_is_missing_on_either_side(self):
        cases = (("| fru-record | - |", "| fru-table | - |", "docs/performance.md has no row for fru-record"),
                 ("| fru-record | - |", "| fru-table | - |", "bench/budgets.json has no fru-table"),
                 ("| `nvme_identify`", "| `nvme_x`", "bench/budgets.json has no nvme_x"),
                 ("stripped: **", "of **", "docs/performance.md tells the size 0 times"))
        for old, new, complaint in cases:
            passed, said = self.page(old, new)
            self.assertFalse(passed, said)
            self.assertIn(complaint, said)

    def test_writes_what_was_recorded(self):
        passed, said = self.page("| sensor | socket | ", "| sensor | socket | 9", "--write")
        self.assertTrue(passed, said)
        self.assertEqual((self.root / self.PAGE).read_text(encoding="utf-8"),
                         (ROOT / self.PAGE).read_text(encoding="utf-8"))


class AbiPage(CopiedPage):
    SCRIPT, PAGE, RECORDS = "abi_page.py", "docs/abi.md", ("sideband.map", "include/sideband/*.h")

    def test_accepts_what_is_right(self):
        passed, said = self.page()
        self.assertTrue(passed, said)

    def test_finds_what_is_missing_or_too_much(self):
        cases = (("`CRC32`, `CRC8_Table`", "`CRC8_Table`", "CRC32 is not in the list"),
                 ("`sl8_smbus_block_read`, ", "", "sl8_smbus_block_read is not in the list"),
                 ("`CRC8_Table`", "`CRC8_Table`, `CRC16`", "CRC16 is in the list, and not exported beside the others"),
                 ("`CRC8_Table`", "`CRC8_Table`, `mctp_init2`", "mctp_init2 is in the list, and"),
                 ("`nvme_` or `smbus_`", "`nvme_`", "smbus_block_read is not in the list"),
                 ("`nvme_` or `smbus_`", "`nvme_`, `smbus_`, `sideband_`",
                  "sideband_* is no pattern of sideband.map"),
                 ("Most begin with", "Most are", "the sentence with the names is not found"))
        for old, new, complaint in cases:
            passed, said = self.page(old, new)
            self.assertFalse(passed, said)
            self.assertIn(f"docs/abi.md: {complaint}", said)


if __name__ == "__main__":
    unittest.main()
