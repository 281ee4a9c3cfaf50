#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that the checks in this folder find what they look for.

usage: test_checks.py --compiler "COMMAND"
"""
import argparse
import contextlib
import io
import json
import pathlib
import shlex
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "bench"))
import budgets  # noqa: E402
import capture_check  # noqa: E402
import dissector  # noqa: E402
import pcapng  # noqa: E402

HERE = pathlib.Path(__file__).resolve().parent
COMPILER = []

PLATFORM_H = """\
#ifndef SIDEBAND_PLATFORM_H
#define SIDEBAND_PLATFORM_H
#include <sideband/export.h>
SIDEBAND_BEGIN_DECLS
/* not_declared(): only a comment. */
typedef struct record { int (*member_call)(void); } record;
int plt_call(int value);
extern record plt_record;
SIDEBAND_END_DECLS
#endif
"""
API_H = """\
#ifndef SIDEBAND_API_H
#define SIDEBAND_API_H
#include <sideband/export.h>
SIDEBAND_BEGIN_DECLS
SIDEBAND_EXPORT int api_call(void);
SIDEBAND_EXPORT extern const int api_table[2];
SIDEBAND_END_DECLS
#endif
"""
GOOD = """\
#include <sideband/api.h>
#include <sideband/platform.h>
#include <stdio.h>
#include <unistd.h>
extern const int api_table[2] = {1, 2};
int api_call(void) {
    char text[16];
    snprintf(text, sizeof text, "%d", getpid());
    return plt_call(getpid()) + (plt_record.member_call != nullptr) + text[0];
}
"""
PROTECTED = ("-fstack-protector-strong", "-O2", "-U_FORTIFY_SOURCE", "-D_FORTIFY_SOURCE=2",
             "-Wl,-z,relro,-z,now", "-Wl,-z,noexecstack")


class Tree(unittest.TestCase):
    """A scratch tree with an include folder of its own."""

    def setUp(self):
        self.scratch = tempfile.TemporaryDirectory()
        self.addCleanup(self.scratch.cleanup)
        self.root = pathlib.Path(self.scratch.name)
        export = (HERE.parent.parent / "include" / "sideband" / "export.h").read_text()
        self.write("include/sideband/export.h", export)
        self.write("include/sideband/platform.h", PLATFORM_H)
        self.write("include/sideband/api.h", API_H)

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)

    def check(self, script, *arguments):
        """(passed, what it printed)"""
        done = subprocess.run([sys.executable, HERE / script, *arguments],
                              capture_output=True, text=True)
        self.assertEqual(done.stderr, "")
        return done.returncode == 0, done.stdout


class BudgetCheck(unittest.TestCase):
    def missed(self, found, budget):
        with contextlib.redirect_stdout(io.StringIO()):
            return budgets.compare(found, budget)

    def test_accepts_what_is_within_the_tolerance(self):
        self.assertEqual(self.missed({"a": 103, "b": 7}, {"a": 100, "b": 200}), 0)

    def test_finds_what_costs_more(self):
        self.assertEqual(self.missed({"a": 104, "b": 7}, {"a": 100, "b": 7}), 1)

    def test_finds_what_has_no_budget(self):
        self.assertEqual(self.missed({"a": 1}, {}), 1)

    def test_finds_what_was_not_measured(self):
        self.assertEqual(self.missed({}, {"a": 1}), 1)


class SymbolCheck(Tree):
    def symbols(self, source, soname="libsideband.so.0", libraries=("-nodefaultlibs", "-lc"),
                protection=PROTECTED, options=()):
        self.write("library.cpp", source)
        library = self.root / "libsideband.so"
        subprocess.run([*COMPILER, "-std=c++20", "-shared", "-fPIC", "-fvisibility=hidden",
                        "-fno-exceptions", *protection, f"-I{self.root}/include",
                        f"-Wl,-soname,{soname}", "-o", library, self.root / "library.cpp",
                        *libraries], check=True)
        return self.check("symbols.py", "--library", library, "--include", self.root / "include",
                          *options)

    def test_accepts_a_good_library(self):
        passed, said = self.symbols(GOOD)
        self.assertTrue(passed, said)

    def assert_refused(self, result, complaint):
        passed, said = result
        self.assertFalse(passed)
        self.assertIn(complaint, said)

    def test_finds_an_export_that_no_header_declares(self):
        self.assert_refused(self.symbols(GOOD + 'extern "C" SIDEBAND_EXPORT int other() { return 1; }'),
                            "exported, but in no public header: other")

    def test_finds_a_declaration_that_is_not_exported(self):
        self.write("include/sideband/api.h", API_H.replace("int api_call(void);",
                   "int api_call(void);\nSIDEBAND_EXPORT int api_gone(void);"))
        self.assert_refused(self.symbols(GOOD), "in a public header, but not exported: api_gone")

    def test_finds_a_stranger_that_the_library_needs(self):
        source = GOOD.replace("getpid()", "stranger() + getpid()")
        self.assert_refused(self.symbols('extern "C" int stranger();\n' + source),
                            "undefined: stranger")

    def test_finds_a_library_that_asks_for_an_environment_variable(self):
        for declared, used in (("char* getenv(const char*);", 'getenv("HOME") != nullptr'),
                               ("extern char** environ;", "environ[0] != nullptr")):
            name = used.split("(")[0].split("[")[0]
            source = 'extern "C" {\n' + declared + "\n}\n" + GOOD.replace("getpid()", f"({used}) + getpid()")
            self.assert_refused(self.symbols(source), f"uses its environment: {name}")

    def test_does_not_take_a_comment_or_a_member_for_a_declaration(self):
        source = GOOD.replace("getpid()", "not_declared() + member_call()")
        said = self.symbols('extern "C" int not_declared();\nextern "C" int member_call();\n' + source)
        self.assert_refused(said, "undefined: not_declared")
        self.assert_refused(said, "undefined: member_call")

    def test_finds_the_cxx_runtime(self):
        source = GOOD + "int *leak();\nint *leak() { return new int; }\n"
        source += 'extern "C" SIDEBAND_EXPORT int use() { return *leak(); }'
        result = self.symbols(source, libraries=())
        self.assert_refused(result, "needs libstdc++.so.6")
        self.assert_refused(result, "undefined: _Znwj" if "_Znwj" in result[1] else "undefined: _Znwm")

    def without(self, *flags, instead=(), options=()):
        kept = [flag for flag in PROTECTED if flag not in flags]
        return self.symbols(GOOD, protection=[*kept, *instead], options=options)

    def test_finds_a_library_without_a_stack_protector(self):
        # As it was: behind the builder's flags, and against them.
        self.assert_refused(self.without(instead=["-fno-stack-protector"]), "has no stack protector")

    def test_finds_a_library_that_is_not_fortified(self):
        without = ("-D_FORTIFY_SOURCE=2",)
        self.assert_refused(self.without(*without), "is not fortified")
        passed, said = self.without(*without, options=["--unfortified"])
        self.assertTrue(passed, said)

    def test_finds_an_offset_table_that_stays_writable(self):
        lazy = ("-Wl,-z,relro,-z,now",)
        self.assert_refused(self.without(*lazy, instead=["-Wl,-z,relro,-z,lazy"]), "stays writable")
        self.assert_refused(self.without(*lazy, instead=["-Wl,-z,norelro,-z,now"]), "stays writable")

    def test_finds_a_stack_that_code_can_run_on(self):
        self.assert_refused(self.without("-Wl,-z,noexecstack", instead=["-Wl,-z,execstack"]),
                            "stack that code can run on")

    def test_finds_a_wrong_soname(self):
        self.assert_refused(self.symbols(GOOD, soname="libsideband.so.1"), "soname is")

    def test_finds_a_static_constructor(self):
        self.assert_refused(self.symbols(GOOD + "static int started = getpid();\nint twice() "
                                         "{ return started * 2; }"), "static constructor")


FAKE_TOOL = """\
#!/bin/sh
case $1 in
show) test -s "$2" && echo "read $2" || { echo "sideband-sim: $2: No such file" >&2; exit 3; } ;;
fail) echo "sideband-sim: fails as it should" >&2; exit 1 ;;
pkg) echo "a package" >"$3" ;;
esac
"""


class CoverageBounds(Tree):
    """scripts/coverage_bounds.py, with one file of four lines."""

    REASON = "    Nobody can come there.\n"

    def bounds(self, counts, listed="", lines=50, branches=50, covered=None):
        """(passed, what it printed)"""
        covered = sum(count > 0 for count in counts) if covered is None else covered
        self.write("pldm/part.cpp", "int part(int value) {\n    if (value) {\n        return 0;\n    }\n")
        function = {"lineno": 1, "name": "sideband::(anonymous namespace)::Part::part(int)", "execution_count": 1}
        details = [{"line_number": number, "count": count, "gcovr/noncode": False, "gcovr/excluded": False,
                    "branches": []} for number, count in enumerate(counts, 1)]
        numbers = {"line_total": len(counts), "line_covered": covered, "branch_total": 4, "branch_covered": 3}
        file = {"filename": "pldm/part.cpp", "line_percent": 0, **numbers}
        self.write("summary.json", json.dumps({"files": [file], **numbers}))
        self.write("details.json", json.dumps(
            {"files": [{"file": "pldm/part.cpp", "functions": [function], "lines": details}]}))
        self.write("list.txt", listed)
        script = HERE.parent.parent / "scripts" / "coverage_bounds.py"
        done = subprocess.run([sys.executable, script, "summary.json", "details.json", "list.txt", "--lines", str(lines),
                               "--branches", str(branches)], capture_output=True, text=True, cwd=self.root)
        return done.returncode == 0, done.stdout + done.stderr

    def assert_refused(self, result, complaint):
        passed, said = result
        self.assertFalse(passed)
        self.assertIn(complaint, said)

    def test_accepts_what_is_reached_or_explained(self):
        self.assertTrue(self.bounds([1, 1, 1, 1])[0])
        passed, said = self.bounds([1, 1, 0, 1], "# A comment.\npldm/part.cpp, Part::part: return 0;\n" + self.REASON)
        self.assertTrue(passed, said)

    def test_finds_coverage_below_the_bounds(self):
        listed = "pldm/part.cpp, Part::part: return 0;\n" + self.REASON
        self.assert_refused(self.bounds([1, 1, 0, 1], listed, lines=76), "75.0 % of 4 lines (at least 76 %)")
        self.assertTrue(self.bounds([1, 1, 0, 1], listed, lines=75)[0])
        self.assert_refused(self.bounds([1, 1, 1, 1], branches=76), "75.0 % of 4 branches (at least 76 %)")
        self.assert_refused(self.bounds([]), "no line was measured")

    def test_finds_a_line_without_a_reason(self):
        self.assert_refused(self.bounds([1, 1, 0, 1]), "has no reason: pldm/part.cpp, Part::part: return 0;")
        self.assert_refused(self.bounds([1, 1, 0, 1], "pldm/part.cpp, Part::part: return 0;\n"),
                            "list.txt has no reason: pldm/part.cpp")

    def test_finds_a_reason_without_a_line(self):
        self.assert_refused(self.bounds([1, 1, 1, 1], "pldm/part.cpp, Part::part: return 0;\n" + self.REASON),
                            "explains what is gone or reached: pldm/part.cpp, Part::part: return 0;")
        self.assert_refused(self.bounds([1, 1, 0, 1], "pldm/part.cpp, Part::part: return 0;\n" * 2 + self.REASON),
                            "explains what is gone or reached")

    def test_finds_details_of_another_run(self):
        listed = "pldm/part.cpp, Part::part: return 0;\n" + self.REASON
        self.assert_refused(self.bounds([1, 1, 0, 1], listed, covered=4), "it is of another run")


class RefreshPage(Tree):
    """scripts/refresh_page.py, with a tool that only looks whether a file is there, and makes a package of nothing."""

    def refresh(self, *lines):
        """(how it ended, the page behind it)"""
        page, tool = self.root / "page.md", self.root / "tool"
        self.write("page.md", "\n".join(("```console", *lines, "```", "")))
        self.write("tool", FAKE_TOOL)
        tool.chmod(0o755)
        script = HERE.parent.parent / "scripts" / "refresh_page.py"
        done = subprocess.run([sys.executable, script, tool, page], capture_output=True, text=True,
                              cwd=self.root)
        return done, page.read_text().splitlines()[1:-1]

    def test_brings_the_files_that_the_commands_name(self):
        for name in ("nic.fwpkg", "cut.fwpkg", "drive.img"):
            done, page = self.refresh(f"$ sideband-sim show {name}", "old")
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertEqual(page, [f"$ sideband-sim show {name}", f"read {name}"])

    def test_keeps_the_page_where_a_command_fails(self):
        before = ("$ sideband-sim show nic.fwpkg", "old", "$ sideband-sim show other.fwpkg", "output")
        done, page = self.refresh(*before)
        self.assertEqual(done.returncode, 1)
        self.assertIn("show other.fwpkg", done.stderr)
        self.assertIn("No such file", done.stderr)
        self.assertEqual(tuple(page), before)

    def test_renews_an_error_that_the_page_shows(self):
        done, page = self.refresh("$ sideband-sim fail", "sideband-sim: as it was")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(page[1:], ["sideband-sim: fails as it should"])


class PortingPage(Tree):
    """porting_page.py, on a copy of the page and of what it tells."""

    def page(self, old="", new=""):
        """What the check says of the page with one text in the place of another."""
        source = HERE.parent.parent
        for name in ("docs/porting.md", "bench/budgets.json", *(f"include/sideband/{header.name}" for header in
                                                                (source / "include" / "sideband").glob("*.h"))):
            self.write(name, (source / name).read_text(encoding="utf-8"))
        page = self.root / "docs" / "porting.md"
        self.assertIn(old, page.read_text(encoding="utf-8"))
        page.write_text(page.read_text(encoding="utf-8").replace(old, new, 1), encoding="utf-8")
        passed, said = self.check("porting_page.py", "--root", self.root, "--compiler", shlex.join(COMPILER))
        if "has no column" in said:
            self.skipTest(f"the page does not have this machine: {said.strip()}")
        return passed, said

    def test_accepts_what_is_right(self):
        passed, said = self.page()
        self.assertTrue(passed, said)

    def test_finds_each_wrong_figure(self):
        for old, new in (("| `lx_mutex` | 64 | 64 |", "| `lx_mutex` | 65 | 65 |"), ("| log, texts | 5", "| log, texts | 6"),
                         ("| NC-SI |", "| NCSI |"), ("02 | 6d", "02 | 6c"), ("00 | 7d", "01 | 7d")):
            passed, said = self.page(old, new)
            self.assertFalse(passed, said)


class HeaderCheck(Tree):
    def headers(self):
        return self.check("headers.py", "--include", self.root / "include", "--compiler",
                          shlex.join(COMPILER))

    def test_finds_a_header_that_needs_another_one_first(self):
        self.write("include/sideband/api.h", API_H.replace("int api_call(void)",
                                                           "uint8_t api_call(void)"))
        passed, said = self.headers()
        self.assertFalse(passed)
        self.assertIn("sideband/api.h as c11", said)
        self.assertIn("sideband/api.h as c++20", said)

    def test_finds_what_only_one_language_knows(self):
        self.write("include/sideband/api.h", API_H.replace("(void)", "(int class_)")
                   .replace("int class_", "int class"))
        passed, said = self.headers()
        self.assertFalse(passed)
        self.assertNotIn("sideband/api.h as c11", said)
        self.assertIn("sideband/api.h as c++20", said)

    def test_finds_a_header_without_a_guard(self):
        self.write("include/sideband/api.h", "typedef struct once { int a; } once;\n")
        self.assertFalse(self.headers()[0])


class HouseCheck(Tree):
    OPENING = "// SPDX-License-Identifier: Apache-2.0\n// A file for this test.\n"

    def setUp(self):
        super().setUp()
        for header in ("export.h", "platform.h", "api.h"):
            self.write(f"include/sideband/{header}",
                       "/* SPDX-License-Identifier: Apache-2.0 */\n/* A header. */\n")
        for folder in ("common", "pldm", "transport", "platform/board_file", "platform/linux", "platform/sim",
                       "tools", "tools/shell", "tools/ncsi", "tools/nvme", "tests"):
            self.write(f"{folder}/part.h", self.OPENING)

    def house(self, name, text):
        self.write(name, text)
        return self.check("house.py", self.root)

    def assert_refused(self, name, text):
        passed, said = self.house(name, text)
        self.assertFalse(passed, said)
        self.assertIn(name, said)

    def test_accepts_a_tidy_tree(self):
        passed, said = self.house("pldm/base.cpp", self.OPENING + '#include "common/part.h"\n'
                                  '#include "transport/part.h"\n#include <sideband/api.h>\n')
        self.assertTrue(passed, said)

    def test_the_library_includes_downwards_only(self):
        self.assert_refused("common/base.cpp", self.OPENING + '#include "transport/part.h"\n')
        self.assert_refused("pldm/base.cpp", self.OPENING + '#include "tests/part.h"\n')
        self.assert_refused("pldm/base.cpp", self.OPENING + '#include "../transport/part.h"\n')

    def test_the_simulated_board_shares_nothing_with_the_library(self):
        self.assert_refused("platform/sim/a.cpp", self.OPENING + '#include "common/part.h"\n')
        self.assert_refused("platform/sim/a.cpp", self.OPENING + "#include <sideband/api.h>\n")

    def test_rooms_of_the_tool_share_the_shell_alone(self):
        both = '#include "tools/ncsi/part.h"\n#include "tools/shell/part.h"\n'
        for name in ("tools/ncsi/a.cpp", "tools/demo/a.cpp", "tools/a.cpp"):
            passed, said = self.house(name, self.OPENING + both)
            self.assertTrue(passed, said)
        self.assert_refused("tools/ncsi/a.cpp", self.OPENING + '#include "tools/nvme/part.h"\n')
        self.assert_refused("tools/ncsi/a.cpp", self.OPENING + '#include "../nvme/part.h"\n')
        self.assert_refused("tools/ncsi/a.cpp", self.OPENING + '#include "tools/part.h"\n')
        self.assert_refused("tools/new/a.cpp", self.OPENING + '#include "tools/ncsi/part.h"\n')

    def test_the_shell_of_the_tool_knows_no_room(self):
        self.assert_refused("tools/shell/a.cpp", self.OPENING + '#include "tools/ncsi/part.h"\n')

    def test_platforms_share_the_board_file_and_nothing_else(self):
        sharing = self.OPENING + '#include "platform/board_file/part.h"\n#include "sim/part.h"\n'
        passed, said = self.house("platform/sim/a.cpp", sharing)
        self.assertTrue(passed, said)
        self.assert_refused("platform/linux/a.cpp", sharing)
        self.assert_refused("platform/linux/a.cpp", self.OPENING + '#include "platform/sim/part.h"\n')
        self.assert_refused("platform/linux/b.cpp", self.OPENING + '#include <sideband-sim/sim.h>\n')
        self.assert_refused("platform/linux/c.cpp", self.OPENING + '#include "common/part.h"\n')
        self.assert_refused("platform/board_file/a.cpp",
                            self.OPENING + '#include "platform/linux/part.h"\n')
        self.assert_refused("platform/board_file/b.cpp",
                            self.OPENING + "#include <sideband/platform.h>\n")

    def test_the_judge_of_ports_looks_from_outside(self):
        self.write("include/sideband/mctp.h", "/* SPDX-License-Identifier: Apache-2.0 */\n/* A header. */\n")
        passed, said = self.house("porttest/rules/a.cpp", self.OPENING + "#include <sideband/mctp.h>\n"
                                  + '#include "porttest/rule.h"\n')
        self.assertTrue(passed, said)
        for name in ("common/wire.h", "transport/mctp.h", "tools/part.h", "platform/sim/part.h"):
            self.write(name, "// SPDX-License-Identifier: Apache-2.0\n// A header.\n")
            self.assert_refused("porttest/a.cpp", self.OPENING + f'#include "{name}"\n')

    def test_the_template_knows_public_headers_alone(self):
        passed, said = self.house("platform/template/port.c", self.OPENING + "#include <sideband/mctp.h>\n")
        self.assertTrue(passed, said)
        self.assert_refused("platform/template/port.c", self.OPENING + '#include "platform/linux/part.h"\n')
        self.assert_refused("platform/template/port.c", self.OPENING + "#include <sideband/pldm.h>\n")

    def test_a_card_alone_knows_the_context(self):
        knowing = self.OPENING + "#include <sideband/mctp.h>\n"
        self.write("include/sideband/mctp.h", "/* SPDX-License-Identifier: Apache-2.0 */\n/* A header. */\n")
        passed, said = self.house("platform/linux/card.cpp", knowing)
        self.assertTrue(passed, said)
        self.assert_refused("platform/linux/pcie.cpp", knowing)

    def test_a_file_opens_with_licence_and_purpose(self):
        self.assert_refused("tools/a.cpp", "// A file.\n")
        self.assert_refused("tools/a.cpp", "// SPDX-License-Identifier: Apache-2.0\nint a;\n")

    def test_no_unfinished_work(self):
        self.assert_refused("tools/a.cpp", self.OPENING + "// TO" + "DO: more\n")


class NamedTests(Tree):
    """named_tests.py, on a page with a single row."""

    def named(self, cell):
        self.write("tests/room/part_test.cpp", "TEST(Part, Works) {\n}\nTEST_P(Each, Works) {\n}\n// TEST(Part, Sleeps)\n")
        self.write("SECURITY.md", "# S\n\n| a |\n|---|\n| `x` |\n\n## Entrances\n\n| entrance | test |\n|---|---|\n"
                   f"| the wire | {cell} |\n\n## Else\n\n| a |\n|---|\n| `y` |\n")
        return self.check("named_tests.py", self.root)

    def test_accepts_what_is_there(self):
        passed, said = self.named("`tests/room/part_test.cpp`: `Part.Works`, `Each.Works`; no test of the rest")
        self.assertTrue(passed, said)
        self.assertIn("1 entrances, 2 cases", said)

    def test_finds_what_is_not(self):
        file = "`tests/room/part_test.cpp`: "
        for cell, complaint in ((file + "`Part.Sleeps`", "Part.Sleeps is not in tests/room/part_test.cpp"),
                                (file + "`Part.Works`, `Each.Sleeps`", "Each.Sleeps is not in"),
                                ("`Part.Works`", "is not in any file"), (file + "`works`", "works is neither"),
                                ("`tests/room/no_test.cpp`: `Part.Works`", "tests/room/no_test.cpp is not there"),
                                ("some", "names no case")):
            passed, said = self.named(cell)
            self.assertFalse(passed, said)
            self.assertIn(complaint, said)

    def test_wants_cases_at_all(self):
        self.assertFalse(self.named("no test")[0])


def block(kind, body):
    length = len(body) + 12
    return struct.pack("<II", kind, length) + body + struct.pack("<I", length)


def option(code, text):
    return struct.pack("<HH", code, len(text)) + text + bytes(-len(text) % 4)


def capture_file(packets, link_type=pcapng.LINUX_SLL2):
    """A capture of (outgoing, hex of the MCTP packet)."""
    data = block(pcapng.SECTION_HEADER, struct.pack("<IHHq", 0x1A2B3C4D, 1, 0, -1))
    data += block(pcapng.INTERFACE, struct.pack("<HHI", link_type, 0, 0) + option(2, b"i2c-3"))
    for number, (outgoing, text) in enumerate(packets):
        frame = struct.pack(">HHIHBB8s", 0x00FA, 0, 0, 1, 4 if outgoing else 0, 1, b"\x30")
        frame += bytes.fromhex(text)
        head = struct.pack("<IIIII", 0, 0, number, len(frame), len(frame))
        data += block(pcapng.ENHANCED_PACKET, head + frame + bytes(-len(frame) % 4)
                      + option(1, b"bus 3, address 0x30"))
    return data


@unittest.skipUnless(dissector.find(), "no tshark here knows MCTP")
class CaptureCheck(unittest.TestCase):
    READING = (True, "01 1d 08 cb 01 81 02 11 0c 00 00")
    ANSWER = (False, "01 08 1d c3 01 01 02 11 00 05 00 00 01 01 01 eb ff ff ff")

    def compare(self, *packets, link_type=pcapng.LINUX_SLL2, misnumbered=0):
        with tempfile.NamedTemporaryFile(suffix=".pcapng") as file:
            file.write(capture_file(packets, link_type))
            file.flush()
            comparison = capture_check.Comparison(dissector.find(), file.name, misnumbered)
            comparison.run()
            return comparison

    def assert_complaint(self, comparison, text):
        self.assertTrue(any(text in complaint for complaint in comparison.complaints),
                        comparison.complaints)

    def test_accepts_an_exchange_and_reads_its_value(self):
        comparison = self.compare(self.READING, self.ANSWER)
        self.assertEqual(comparison.complaints, [])
        self.assertEqual(capture_check.answers_by_sensor(comparison), {12: [(5, 0, 0, 1, 1, 1, -21)]})

    def test_finds_a_value_that_the_tool_prints_otherwise(self):
        sensor = {"sensor_type": "numeric", "sensor_data_size": 5, "sensor_operational_state": 0,
                  "sensor_event_message_enable": 0, "present_state": 1, "previous_state": 1,
                  "event_state": 1, "present_reading": -21}
        self.assertIsNone(capture_check.compare_sensor(sensor, [(5, 0, 0, 1, 1, 1, -21)]))
        self.assertIsNotNone(capture_check.compare_sensor(sensor, [(5, 0, 0, 1, 1, 1, -20)]))
        self.assertIsNotNone(capture_check.compare_sensor(sensor, []))

    def test_finds_a_cut_answer(self):
        outgoing, text = self.ANSWER
        self.assert_complaint(self.compare(self.READING, (outgoing, text[:-9])), "alformed")

    def test_finds_a_message_without_an_end(self):
        self.assert_complaint(self.compare((False, "01 08 1d 83 01 01 02 11 00")), "has no end")

    def test_finds_a_packet_that_continues_nothing(self):
        self.assert_complaint(self.compare((False, "01 08 1d 53 01 01 02 11")), "continues no message")

    def test_knows_an_end_with_the_next_sequence_number(self):
        first, last = "01 08 1d 83 7e 01 02 11 00", "01 08 1d 63 05 00 00"
        self.assert_complaint(self.compare((False, first), (False, last)), "with a misnumbered end, and not 0")
        comparison = self.compare((False, first), (False, last), misnumbered=1)
        self.assertEqual(comparison.complaints, [])
        comparison = self.compare((False, first), (False, "01 08 1d 73 05 00 00"), misnumbered=1)
        self.assert_complaint(comparison, "continues no message")

    def test_counts_the_full_last_packet_of_the_bmc(self):
        first, last = "01 1d 08 89 01 87 00 05 00 f1 f0 f0", "01 1d 08 19 00 00 00 00 00 00 00 00"
        comparison = self.compare((True, first), (True, last))
        self.assertEqual((comparison.complaints, comparison.unmarked_ends), ([], 1))
        comparison = self.compare((False, first), (False, last))
        self.assert_complaint(comparison, "has no end")
        comparison = self.compare((True, first), (True, last + " 00"))
        self.assert_complaint(comparison, "has no end")

    def fru_parts(self, table):
        """A FRU table in two answers, cut in the middle of a field."""
        cut = len(table) // 2
        start = "01 08 1d c1 01 01 04 02 00 0a 00 00 00 00 " + table[:cut].hex()
        end = "01 08 1d c2 01 02 04 02 00 00 00 00 00 04 " + table[cut:].hex()
        return (False, start), (False, end)

    def test_puts_a_fru_table_together_and_checks_its_sum(self):
        table = bytes.fromhex("0100010101" "0510") + b"Example Networks" + bytes(1)
        good = table + struct.pack("<I", zlib.crc32(table))
        self.assertEqual(self.compare(*self.fru_parts(good)).complaints, [])
        bad = good[:10] + b"?" + good[11:]
        self.assert_complaint(self.compare(*self.fru_parts(bad)), "do not fit its checksum")

    def test_finds_a_malformed_fru_table_in_one_answer(self):
        whole = "01 08 1d c1 01 01 04 02 00 00 00 00 00 05 01 00 01 01 01 05 10 45"
        self.assert_complaint(self.compare((False, whole)), "alformed")

    def test_finds_a_wrong_version(self):
        outgoing, text = self.READING
        self.assert_complaint(self.compare((outgoing, "02" + text[2:])), "not dissected as MCTP")

    def test_refuses_another_link_type(self):
        with self.assertRaises(pcapng.Malformed):
            self.compare(self.READING, link_type=291)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--compiler", required=True)
    arguments, rest = parser.parse_known_args()
    COMPILER = shlex.split(arguments.compiler)
    unittest.main(argv=[sys.argv[0], *rest])
