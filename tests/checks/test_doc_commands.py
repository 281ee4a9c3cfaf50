#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that doc_commands.py finds what it looks for, on small pages with a tool that only looks like one."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import doc_commands  # noqa: E402

SCRIPT = pathlib.Path(__file__).resolve().parent / "doc_commands.py"
TOOL = """\
#!/bin/sh
case "$*" in
*--help) printf -- '--json\\n\\nSubcommands:\\n  show   shows\\n  fail   fails\\n' | if [ $# -eq 1 ]; then cat; else grep json; fi ;;
pkg*) echo package >"$3" ;;
show*) echo one; echo two; echo three; echo four ;;
fail) echo "sideband-sim: it fails" >&2; exit 3 ;;
silent) ;;
esac
"""
FILES = {
    "dev": "do_test() { :; }\ndo_abi() { :; }\ndo_demo() { :; }\n",
    ".ci/run": "suite test\ncheck abi ./dev abi\n",
    "include/sideband/pldm.h": "int pldm_get_tid(int a);\n",
    "scripts/there.py": "",
}


def block(language, *lines, mark=""):
    return "\n".join((*([f"<!-- {mark} -->"] if mark else []), f"```{language}", *lines, "```", ""))


class DocCommands(unittest.TestCase):
    def check(self, *blocks, options=()):
        """(passed, what it printed) of one page with these blocks, and a command that is good."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            good = block("sh", "sideband-sim show good")
            for name, text in {**FILES, "tool": TOOL, "README.md": "\n".join((good, *blocks))}.items():
                path = root / name
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text)
            (root / "tool").chmod(0o755)
            done = subprocess.run([sys.executable, SCRIPT, "--root", root, "--build", root, "--program",
                                   f"sideband-sim={root}/tool", *options], capture_output=True, text=True, check=False)
            self.assertEqual(done.stderr, "")
            return done.returncode == 0, done.stdout

    def accept(self, *blocks, options=()):
        passed, said = self.check(*blocks, options=options)
        self.assertTrue(passed, said)
        return said

    def refuse(self, complaint, *blocks, options=()):
        passed, said = self.check(*blocks, options=options)
        self.assertFalse(passed, said)
        self.assertIn(complaint, said)

    def test_counts_what_is_run_and_what_is_not(self):
        said = self.accept(block("console", "$ sideband-sim show", "one", "two", "three", "four"),
                           block("sh", "sideband show a", "sideband show b", mark="needs hardware: a bus"),
                           block("sh", "./dev test", "./dev abi   # why"))
        self.assertIn("2 commands run", said)
        self.assertIn("2 commands marked as needs hardware", said)
        self.assertIn("   2 needs hardware: a bus", said)
        self.assertIn("2 chores of the gate", said)

    def test_finds_a_command_that_fails(self):
        self.refuse("README.md:6: sideband-sim fail ends with status 3", block("sh", "sideband-sim fail"))
        self.refuse("no-such-program ends with status 127", block("sh", "no-such-program"))
        self.refuse("sideband-sim fail ends with status 3", block("console", "$ sideband-sim fail"))

    def test_finds_a_command_that_does_not_fail_as_shown(self):
        shown = ("sideband-sim: it fails",)
        self.accept(block("console", "$ sideband-sim fail", *shown))
        self.accept(block("console", "$ sideband-sim fail", *shown, mark="exit status: 3"))
        self.refuse("ends with status 3", block("console", "$ sideband-sim fail", *shown, mark="exit status: 1"))
        self.refuse("ends with status 0", block("console", "$ sideband-sim show", *shown))
        self.refuse("no exit status fits a block of json", block("json", "{}", mark="exit status: 1"))

    def test_finds_wrong_output(self):
        self.accept(block("console", "$ sideband-sim show", "one", "...", "four"))
        self.accept(block("console", "$ sideband-sim show", "...", "two", "...", "four"))
        for shown in (("one", "two", "three"), ("one", "...", "three"), ("two", "...", "four"), (),
                      ("one", "...", "three", "two", "...", "four"), ("one", "two", "three", "...", "three", "four")):
            self.refuse("prints something else", block("console", "$ sideband-sim show", *shown))

    def test_takes_a_line_whose_end_is_left_out(self):
        self.accept(block("console", "$ sideband-sim show", "o ...", "two", "...", "fo ..."))
        self.refuse("prints something else", block("console", "$ sideband-sim show", "t ...", "...", "four"))

    def test_keeps_what_a_command_exports_for_the_page(self):
        self.accept(block("sh", "export WORD=kept", "test $WORD \\", "    = kept"))
        self.refuse("test $WORD = kept ends with status", block("sh", "test $WORD = kept"))

    def test_finds_a_line_that_prints_nothing(self):
        self.refuse("sideband-sim silent prints nothing", block("sh", "sideband-sim silent"))

    def test_finds_what_a_page_shows_of_a_command_elsewhere(self):
        self.accept(block("text", "two", "three", mark="shown by: sideband-sim show"))
        self.refuse("does not print this", block("text", "two", "four", mark="shown by: sideband-sim show"))

    def test_finds_a_block_that_says_not_what_it_is(self):
        self.refuse('not ""', block("", "sideband-sim show"))
        self.refuse('not "bash"', block("bash", "sideband-sim show"))
        self.refuse("a block without fences", "\n    sideband-sim show\n")
        self.refuse("a command in a block of text", block("text", "$ sideband-sim show"))
        self.refuse("does not begin with a command", block("console", "one", "$ sideband-sim show"))
        self.refuse("does not begin with a command", block("console", "# sideband-sim show"))
        self.refuse("the block has no end", "```sh\nsideband-sim show\n")

    def test_finds_a_mark_that_is_none(self):
        for mark in ("needs hardware", "need hardware: a bus", "not run here:", "whatever: it is"):
            self.refuse("a mark is one of", block("sh", "sideband fail", mark=mark))

    def test_finds_a_chore_that_the_gate_has_not(self):
        self.refuse("./dev demo is not in .ci/run", block("sh", "./dev demo"))
        self.refuse("./dev abi --record is not in .ci/run", block("sh", "./dev abi --record"))
        self.accept(block("sh", "./dev abi --record", mark="not run here: it changes the tree"))
        self.refuse("./dev has no chore gone", block("sh", "./dev gone", mark="not run here: it is gone"))
        self.refuse("./dev has no chore gone", "Call `./dev gone`.\n")

    def test_finds_a_command_that_is_not_run_and_not_there(self):
        marked = "needs hardware: a bus"
        self.accept(block("sh", "sideband-sim --json show x", mark=marked), "`sideband-sim fail`, `scripts/there.py x`\n")
        self.refuse("there is no command gone", block("sh", "sideband-sim gone", mark=marked))
        self.refuse("there is no option --gone", block("sh", "sideband-sim show --gone", mark=marked))
        self.refuse("there is no command gone", "Say `sideband-sim gone`.\n")
        self.refuse("there is no scripts/gone.py", "Say `scripts/gone.py x`.\n")

    def test_finds_json_and_programs_that_are_none(self):
        self.accept(block("json", '{"a": 1}'), block("json", '"a": [1]'))
        self.refuse("this is no JSON", block("json", '{"a": }'))
        self.accept(block("c", "#include <sideband/pldm.h>", "int main(void) { return pldm_get_tid(0); }"))
        self.refuse("does not compile", block("c", "int main(void) { return pldm_get_tid(0); }"))
        self.accept(block("c", "if (pldm_get_tid(1)) return;"))
        self.refuse("no public header has pldm_get_td()", block("c", "if (pldm_get_td(1)) return;"))

    def test_finds_a_command_without_example(self):
        every = ("--every-command", "README.md")
        self.accept(block("console", "$ sideband-sim fail", "sideband-sim: it fails"), options=every)
        self.refuse("there is no example of sideband-sim fail", options=every)

    def test_finds_pages_without_a_command(self):
        self.assertTrue(doc_commands.fits([], []))
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in {**FILES, "README.md": "Nothing.\n"}.items():
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text)
            done = subprocess.run([sys.executable, SCRIPT, "--root", root, "--build", root], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout.splitlines()[0]), (1, "no commands"))


if __name__ == "__main__":
    unittest.main()
