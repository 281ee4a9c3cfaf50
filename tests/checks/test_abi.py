#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that scripts/abi.py finds what it looks for, by changes of a copy of the headers.

usage: test_abi.py ARCHITECTURE=LIBRARY=COMPILER
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
COPIED = ("include", "scripts/abi.py", "tests/checks/headers_text.py", "sideband.map",
          "platform/sim/sideband-sim/sim.h", "platform/linux/sideband-linux/linux.h")
TARGET = []


class AbiCheck(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.root = pathlib.Path(scratch.name)
        for name in COPIED:
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            (shutil.copytree if (ROOT / name).is_dir() else shutil.copy)(ROOT / name, self.root / name)
        self.assertEqual(self.check("--record")[0], 0)

    def check(self, *options):
        done = subprocess.run([sys.executable, self.root / "scripts" / "abi.py", *options, "--folder",
                               self.root / "record", TARGET[0]], capture_output=True, text=True, check=False)
        return done.returncode, done.stdout + done.stderr

    def change(self, header, before, after):
        path = self.root / "include" / "sideband" / header
        text = path.read_text(encoding="utf-8")
        self.assertEqual(text.count(before), 1, before)
        path.write_text(text.replace(before, after), encoding="utf-8")

    def finds(self, *words):
        status, said = self.check()
        self.assertEqual(status, 1, said)
        for word in words:
            self.assertIn(word, said)

    def test_accepts_what_is_as_recorded(self):
        self.assertEqual(self.check()[0], 0)

    def test_accepts_another_comment_and_parameter_name(self):
        self.change("ncsi.h", "ncsi_deinit(ncsi_ctx* ctx);", "ncsi_deinit(ncsi_ctx* context); /* new */")
        self.assertEqual(self.check()[0], 0)

    def test_finds_a_member_at_the_end_of_a_record(self):
        self.change("nvme_mi.h", "    uint8_t cwarn;  /**< critical warnings */",
                    "    uint8_t cwarn;  /**< critical warnings */\n    uint32_t more;")
        self.finds("nvme_controller_health", "more")

    def test_finds_a_record_that_no_function_takes(self):
        self.change("platform.h", "    uint8_t reserved[62];", "    uint8_t reserved[63];")
        self.finds("plt_parameters")

    def test_finds_another_parameter_type(self):
        self.change("ncsi.h", "ncsi_select_package(ncsi_channel* channel, uint32_t package_id)",
                    "ncsi_select_package(ncsi_channel* channel, uint16_t package_id)")
        self.finds("ncsi_select_package")

    def test_finds_another_function_that_a_port_supplies(self):
        self.change("platform.h", "int run_shellcmd(const char* command);",
                    "int run_shellcmd(const char* command);\nint plt_one_more(void);")
        self.finds("plt_one_more")

    def test_finds_another_constant(self):
        self.change("pldm.h", "#define PLDM_CC_NOT_READY 0x04", "#define PLDM_CC_NOT_READY 0x05")
        self.finds("- PLDM_CC_NOT_READY 0x04", "+ PLDM_CC_NOT_READY 0x05")

    def test_finds_a_function_that_the_library_does_not_have(self):
        self.change("version.h", "SIDEBAND_END_DECLS", "SIDEBAND_EXPORT int pldm_more(void);\nSIDEBAND_END_DECLS")
        self.finds("pldm_more: the headers say ('SIDEBAND_0', 'FUNC', 0), the library None")

    def test_finds_a_table_of_another_size(self):
        self.change("mctp.h", "CRC8_Table[256]", "CRC8_Table[128]")
        self.finds("CRC8_Table: the headers say ('SIDEBAND_0', 'OBJECT', 128)")

    def test_finds_a_symbol_without_a_version(self):
        path = self.root / "sideband.map"
        path.write_text(path.read_text(encoding="utf-8").replace("SIDEBAND_0", "SIDEBAND_1"), encoding="utf-8")
        self.finds("the headers say ('SIDEBAND_1'")


if __name__ == "__main__":
    TARGET.append(sys.argv.pop(1))
    unittest.main()
