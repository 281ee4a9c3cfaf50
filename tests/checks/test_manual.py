#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Shows that manual.py finds what it looks for."""
import pathlib
import shutil
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent.parent / "scripts"))
import make_manual  # noqa: E402
import manual  # noqa: E402


def option(*names, **keys):
    return {"names": list(names), "argument": False, "required": False, "takes_value": False, "many": False, "value": "",
            "limits": "", "help": "help", **keys}


def node(name, *commands, options=()):
    return {"name": name, "help": "help", "options": list(options), "commands": list(commands)}


TREE = node("tool", node("scan", options=[option("--bus", takes_value=True, value="N", limits="INT in [0 - 255]")]),
            node("pldm", node("info", options=[option("ENDPOINT", argument=True, required=True)])),
            options=[option("--json"), option("--board", takes_value=True, value="FILE")])
PAGE = "\n".join([".TH TOOL 1", ".SH OPTIONS", *(line for one in TREE["options"] for line in make_manual.option_lines(one)),
                  ".SH COMMANDS", *make_manual.command_lines(TREE), ".SH EXAMPLES", ".B tool \\-\\-json pldm info nic0", ""])


class ManualCheck(unittest.TestCase):
    def test_accepts_a_page_with_all_of_it(self):
        self.assertEqual(manual.missing(PAGE, TREE) + manual.unknown(PAGE, TREE), [])

    def test_finds_a_command_and_an_option_that_are_missing(self):
        more = node("tool", *TREE["commands"], node("raw"), options=[*TREE["options"], option("--board-less")])
        self.assertEqual(manual.missing(PAGE, more), ["lacks raw", "lacks --board-less"])

    def test_finds_an_option_that_is_no_more(self):
        less = node("tool", node("scan"), *TREE["commands"][1:], options=TREE["options"])
        self.assertEqual(manual.unknown(PAGE, less), ["has --bus, which the tool has not"])

    def test_finds_an_example_of_no_command(self):
        for words in ("fetch", "pldm fetch", "\\-\\-board mine.json fetch"):
            self.assertEqual(len(manual.unknown(PAGE + f".B tool {words} nic0\n", TREE)), 1, words)

    def test_says_the_limits_of_a_value(self):
        self.assertIn("help (0 to 255)", PAGE)

    def test_says_the_words_that_an_argument_may_be(self):
        scope = option("SCOPE", argument=True, takes_value=True, value="one|two")
        self.assertEqual(make_manual.option_lines(scope)[1], "\\fISCOPE\\fR: \\fBone|two\\fR")

    def test_shows_that_values_may_be_several(self):
        image = option("--image", takes_value=True, many=True, value="FILE")
        self.assertEqual(make_manual.option_lines(image)[1], "\\fB\\-\\-image\\fR \\fIFILE\\fR...")
        self.assertIn("[\\fB\\-\\-image\\fR \\fIFILE\\fR...]", make_manual.synopsis("create", node("create", options=[image])))

    def test_writes_what_troff_would_take_for_its_own(self):
        self.assertEqual(make_manual.escaped(".x -y \\z 'q"), "\\&.x \\-y \\ez \\(aqq")

    def test_finds_what_formatters_complain_of(self):
        for words in (["groff", "-man", "-Tutf8", "-ww", "-z"], ["man", "--warnings", "-l"]):
            if shutil.which(words[0]) is None:
                print(f"skipped: {words[0]} is not installed")
                continue
            with tempfile.NamedTemporaryFile("w", suffix=".1") as page:
                page.write(PAGE + "\\f(XXodd font\n.nosuchrequest\n")
                page.flush()
                self.assertNotEqual(manual.said_by(*words, page.name), [], words)


if __name__ == "__main__":
    unittest.main()
