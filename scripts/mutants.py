#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Changes one token of the library at a time and looks whether the library's tests notice.

usage: mutants.py [--count N] [--seed S] [--only GLOB]... [--headers] [--work FOLDER] [--data FOLDER] [--list] [ID]...

The tree is copied to a folder outside of it and built there. A mutant is a relational, logical or arithmetic
operator, a number, a condition, a constant or a statement changed, in the files of the library itself (--headers:
in its headers instead, which takes longer to compile). It is killed if a test program fails, crashes or does not
come to its end. Not counted are mutants that do not compile, that compile to the very same library, and those that
mutants_equivalent.txt beside this file explains. Exit status 1 if one survives.
"""
import argparse
import collections
import fnmatch
import hashlib
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOMS = ("common", "transport", "pldm", "ncsi", "NVMeMI")
PROGRAMS = {
    "common": "tests/common/common-tests",
    "transport": "tests/transport/transport-tests",
    "eid-pool": "tests/transport/eid-pool-tests",
    "pldm": "tests/pldm/pldm-tests",
    "ncsi": "tests/ncsi/ncsi-tests",
    "NVMeMI": "tests/NVMeMI/nvme-mi-tests",
    "board": "tests/board/board-tests",
    "board-threads": "tests/board/board-thread-tests",
}
# Takes its time, and says nothing of what the library does.
LEFT_OUT = "--gtest_filter=-*Throughput*"
# A table of numbers that a test reads as a whole: it would only add to what is killed.
TABLES = ("common/crc8_table.cpp",)

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<preprocessor>^[ \t]*\#(?:\\\n|[^\n])*)
      | (?P<string>(?:u8|[uUL])?R"\((?:.|\n)*?\)"|(?:u8|[uUL])?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
      | (?P<number>\b(?:0[xX][0-9a-fA-F']+|[0-9][0-9']*)(?:\.[0-9]+)?(?:[eE][-+]?[0-9]+)?[uUlLfzZ]*\b)
      | (?P<name>[A-Za-z_]\w*)
      | (?P<operator><<=|>>=|<=>|->|::|\+\+|--|&&|\|\||[-+*/%&|^<>=!]=|<<|>>|[-+*/%&|^<>=!~?:;,.(){}\[\]])
      | (?P<space>\s+)
      | (?P<other>.)""", re.X | re.M | re.S)

SPACED = {  # binary operators, which the formatter puts between spaces
    "<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"), "==": ("!=",), "!=": ("==",),
    "&&": ("||",), "||": ("&&",), "+": ("-",), "-": ("+",), "*": ("/",), "/": ("*",), "%": ("/",),
    "<<": (">>",), ">>": ("<<",), "&": ("|",), "|": ("&",), "^": ("|",),
    "+=": ("-=",), "-=": ("+=",), "|=": ("&=",), "&=": ("|=",), "<<=": (">>=",), ">>=": ("<<=",), "^=": ("|=",),
}
KEYWORDS = {"return", "if", "else", "for", "while", "do", "switch", "case", "default", "const", "constexpr", "auto",
            "static", "using", "namespace", "struct", "class", "enum", "template", "typename", "public", "private",
            "extern", "void", "bool", "int", "char", "unsigned", "delete", "new", "goto", "static_assert", "assert"}

Token = collections.namedtuple("Token", "kind text start")
Mutant = collections.namedtuple("Mutant", "path start before after line column mark")


def tokens_of(text):
    """What is code: neither comments nor strings nor preprocessor lines nor spaces."""
    return [Token(match.lastgroup, match.group(), match.start()) for match in TOKEN.finditer(text)
            if match.lastgroup in ("number", "name", "operator")]


def closing(tokens, index):
    """The index of the parenthesis that closes the one at an index."""
    depth = 0
    for at in range(index, len(tokens)):
        depth += {"(": 1, ")": -1}.get(tokens[at].text, 0)
        if depth == 0:
            return at
    return len(tokens) - 1


def changed_numbers(text):
    match = re.fullmatch(r"(0[xX])?([0-9a-fA-F']+)([uUlLzZ]*)", text)
    if match is None:
        return
    prefix, digits, suffix = match.group(1) or "", match.group(2).replace("'", ""), match.group(3)
    value = int(digits, 16 if prefix else 10)
    for other in (value + 1, value - 1):
        if other >= 0:
            yield f"{prefix}{other:{'X' if prefix else 'd'}}{suffix}"


def statement_end(tokens, index):
    """The semicolon of the call or assignment that begins at an index; None if none begins there."""
    if tokens[index].kind != "name" or tokens[index].text in KEYWORDS:
        return None
    if index > 0 and tokens[index - 1].text not in (";", "{", "}"):
        return None
    if tokens[index].text in ("break", "continue"):
        return index + 1
    at = index + 1
    while at + 1 < len(tokens) and tokens[at].text in (".", "->", "::", "["):
        at += 2
        while tokens[at - 2].text == "[" and tokens[at - 1].text != "]":
            at += 1
            if tokens[at - 1].text == "]":
                break
    if tokens[at].text not in ("(", "=", "+=", "-=", "|=", "&=", "++", "--"):
        return None
    depth = 0
    for end in range(at, len(tokens)):
        depth += {"(": 1, "{": 1, "[": 1, ")": -1, "}": -1, "]": -1}.get(tokens[end].text, 0)
        if depth < 0:
            return None
        if tokens[end].text == ";" and depth == 0:
            return end
    return None


def is_spaced(text, token):
    before, behind = text[token.start - 1], text[token.start + len(token.text)]
    return before in " \n" and behind in " \n"


def changes(text):
    """Every (start, before, after) of a file, in its order."""
    tokens = tokens_of(text)
    constants = sorted({t.text for t in tokens if re.fullmatch(r"k[A-Z]\w*|[A-Z][A-Z0-9]+_\w+", t.text)})
    for index, token in enumerate(tokens):
        here = lambda after, token=token: (token.start, token.text, after)
        following = tokens[index + 1].text if index + 1 < len(tokens) else ""
        if token.kind == "number":
            yield from map(here, changed_numbers(token.text))
        elif token.kind == "operator":
            if token.text in SPACED and is_spaced(text, token):
                yield from map(here, SPACED[token.text])
            elif token.text in ("++", "--"):
                yield here("--" if token.text == "++" else "++")
            elif token.text == "!":
                yield here(" ")
        elif token.text in ("if", "while") and following == "(":
            start, end = tokens[index + 1].start, tokens[closing(tokens, index + 1)].start
            inside = text[start + 1:end]
            if ";" not in inside:
                yield (start, f"({inside})", f"(!({inside}))")
        elif token.text in ("true", "false"):
            yield here("false" if token.text == "true" else "true")
        elif token.text in constants:
            family = token.text.rpartition("_")[0] if "_" in token.text else "k"
            others = [name for name in constants if name != token.text and name.startswith(family)]
            if others and not (index > 0 and tokens[index - 1].kind == "name" and following in ("=", "{", "[")):
                # One of them: the same one for the same text.
                digest = hashlib.sha256(f"{token.text}{token.start}".encode()).digest()
                yield here(others[digest[0] % len(others)])
        end = statement_end(tokens, index)
        if end is not None:
            whole = text[token.start:tokens[end].start]
            yield (token.start, whole, re.sub(r"[^\n]", " ", whole))


def marked(text, start, before, after):
    """The source line with the change in it, as mutants_equivalent.txt has it: it outlives a move of the line."""
    begin, end = text.rfind("\n", 0, start) + 1, text.find("\n", start + len(before))
    line = f"{text[begin:start]}[{before} -> {after.strip()}]{text[start + len(before):end]}"
    return " ".join(line.split())


def mutants_of(root, headers, globs):
    pattern = "*.h" if headers else "*.cpp"
    found = []
    for room in ROOMS:
        for path in sorted((root / room).rglob(pattern)):
            name = path.relative_to(root).as_posix()
            if name in TABLES or globs and not any(fnmatch.fnmatch(name, glob) for glob in globs):
                continue
            text = path.read_text()
            marks = collections.Counter()
            for start, before, after in changes(text):
                line = text.count("\n", 0, start) + 1
                column = start - text.rfind("\n", 0, start)
                mark = f"{name}: {marked(text, start, before, after)}"
                marks[mark] += 1
                # The same line stands in the file again.
                mark += f" ({marks[mark]})" if marks[mark] > 1 else ""
                found.append(Mutant(name, start, before, after, line, column, mark))
    return found


def shown(text):
    """A piece of source in one line."""
    short = " ".join(text.split())
    return short if len(short) <= 70 else short[:67] + "..."


def identity(mutant):
    digest = hashlib.sha256(f"{mutant.before}\0{mutant.after}".encode()).hexdigest()[:6]
    return f"{mutant.path}:{mutant.line}:{mutant.column}:{digest}"


def explained(path):
    """Why a mutant is no other program: by its mark. A record is the mark and, indented, the reason."""
    reasons, current = {}, None
    for line in path.read_text().splitlines() if path.exists() else ():
        if line.startswith("#") or not line.strip():
            continue
        if line[0].isspace():
            reasons[current] = (reasons[current] + " " + line.strip()).strip()
        else:
            current = line
            reasons[current] = ""
    return reasons


class Tree:
    """A copy of the tree, and its build."""

    def __init__(self, root, work, data):
        self.root, self.copy, self.build = root, work / "tree", work / "build"
        self.data = data
        self.targets = list(PROGRAMS.values())
        self.limits = {}

    def refresh(self):
        names = subprocess.run(["git", "-C", self.root, "ls-files", "-co", "--exclude-standard"], check=True,
                               capture_output=True, text=True).stdout.splitlines()
        names = [name for name in names if (self.root / name).is_file()]
        for name in names:
            self.restore(name)
        if self.copy.exists():
            for path in [path for path in self.copy.rglob("*") if path.is_file()]:
                if path.relative_to(self.copy).as_posix() not in set(names):
                    path.unlink()

    def restore(self, name):
        source, target = self.root / name, self.copy / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, target)

    def configure(self):
        if (self.build / "build.ninja").exists():
            return
        environment = dict(os.environ)
        if shutil.which("ccache"):
            environment.setdefault("CC", "ccache " + os.environ.get("CC", "cc"))
            environment.setdefault("CXX", "ccache " + os.environ.get("CXX", "c++"))
        subprocess.run(["meson", "setup", self.build, self.copy, "--buildtype=debug", "-Ddebug=false",
                        "-Doptimization=1", "-Db_pch=false", "-Dtools=disabled", "-Dtests=enabled",
                        "-Dbench=disabled", "-Dfuzz=disabled", "-Ddocs=disabled", f"-Ddata_dir={self.data}"],
                       check=True, env=environment, stdout=sys.stderr)

    def compile(self, jobs):
        return subprocess.run(["ninja", "-C", self.build, "-j", str(jobs), *self.targets], check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def library(self):
        return hashlib.sha256((self.build / "libsideband.so").read_bytes()).hexdigest()

    def run(self, program, limit):
        """Runs one test program up to its first failure. Returns what came of it, None for nothing."""
        with tempfile.TemporaryDirectory(prefix="mutant-") as folder:
            command = [str(self.build / PROGRAMS[program]), "--gtest_fail_fast", "--gtest_brief=1", LEFT_OUT]
            with open(os.path.join(folder, "output"), "w+", errors="replace") as output:
                process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                           env={**os.environ, "TMPDIR": folder, "TEST_TMPDIR": folder},
                                           cwd=folder, start_new_session=True, preexec_fn=bound)
                try:
                    status = process.wait(limit)
                except subprocess.TimeoutExpired:
                    status = None
                end_group(process)
                if status == 0:
                    return None
                if status is None:
                    return f"{program}: no end after {limit:.0f} s"
                output.seek(0)
                failed = re.search(r"\[  FAILED  \] ([\w/]+\.\w+)", output.read(16_000_000))
                return f"{program}: {failed.group(1) if failed else f'status {status}'}"

    def measure(self):
        for program in PROGRAMS:
            begin = time.monotonic()
            outcome = self.run(program, 600)
            if outcome is not None:
                sys.exit(f"mutants: fails as it is: {outcome}")
            self.limits[program] = 20 + 10 * (time.monotonic() - begin)


def bound():
    """A mutant may want all of the memory, or of the disk."""
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
    resource.setrlimit(resource.RLIMIT_FSIZE, (8 << 30, 8 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def end_group(process):
    """Ends what a test program has started and left behind, and itself."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def order_of(room):
    return [room, *(program for program in PROGRAMS if program != room)]


def judge(tree, mutant, original):
    """@return killed, survived, same or broken, and by what"""
    path = tree.copy / mutant.path
    text = path.read_text()
    assert text[mutant.start:].startswith(mutant.before)
    path.write_text(text[:mutant.start] + mutant.after + text[mutant.start + len(mutant.before):])
    try:
        if not tree.compile(1):
            return "broken", ""
        if tree.library() == original:
            return "same", ""
        for program in order_of(mutant.path.split("/")[0]):
            outcome = tree.run(program, tree.limits[program])
            if outcome is not None:
                return "killed", outcome
        return "survived", ""
    finally:
        # As it was in this tree: the checkout may have been edited meanwhile.
        path.write_text(text)


def report(results, candidates, arguments):
    counts = collections.Counter(outcome for _, outcome, _ in results)
    counted = counts["killed"] + counts["survived"]
    hung = sum(1 for _, outcome, by in results if outcome == "killed" and "no end" in by)
    print(f"\nseed {arguments.seed}, {len(results)} of {candidates} mutants")
    print(f"killed            {counts['killed']} ({hung} by the time that they took)")
    print(f"survived          {counts['survived']}")
    print(f"equivalent        {counts['equivalent']} (explained, not counted)")
    print(f"the same library  {counts['same']} (not counted)")
    print(f"did not compile   {counts['broken']} (not counted)")
    if counted:
        print(f"{100 * counts['killed'] / counted:.1f} % of {counted} killed")
    for mutant, outcome, _ in results:
        if outcome == "survived":
            print(f"survivor {identity(mutant)}  {shown(mutant.before)}  ->  {shown(mutant.after) or '(nothing)'}")
    return 1 if counts["survived"] or not counted else 0


def choose(arguments, root):
    every = mutants_of(root, arguments.headers, arguments.only)
    if arguments.ids:
        chosen = [mutant for mutant in every if identity(mutant) in arguments.ids]
        missing = set(arguments.ids) - {identity(mutant) for mutant in chosen}
        if missing:
            sys.exit(f"mutants: no such mutant: {', '.join(sorted(missing))}")
        return chosen, len(every)
    order = random.Random(arguments.seed)
    return order.sample(every, min(arguments.count, len(every))), len(every)


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", action="append", default=[], metavar="GLOB")
    parser.add_argument("--headers", action="store_true")
    parser.add_argument("--work", type=pathlib.Path,
                        default=pathlib.Path(tempfile.gettempdir()) / f"sideband-mutants-{os.getuid()}")
    parser.add_argument("--data", default="../shared/data")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("ids", nargs="*", metavar="ID")
    return parser.parse_args()


def main():
    arguments = parse()
    root = pathlib.Path(__file__).resolve().parent.parent
    chosen, candidates = choose(arguments, root)
    if arguments.list:
        for mutant in chosen:
            print(f"{identity(mutant)}  {shown(mutant.before)}  ->  {shown(mutant.after) or '(nothing)'}")
        return 0
    reasons = explained(root / "scripts" / "mutants_equivalent.txt")
    tree = Tree(root, arguments.work, arguments.data)
    tree.refresh()
    tree.configure()
    if not tree.compile(os.cpu_count()):
        sys.exit(f"mutants: {tree.build} does not build: ninja -C {tree.build}")
    original = tree.library()
    tree.measure()
    results = []
    for number, mutant in enumerate(chosen, 1):
        if mutant.mark in reasons:
            outcome, by = "equivalent", ""
        else:
            outcome, by = judge(tree, mutant, original)
        results.append((mutant, outcome, by))
        print(f"{number:4} {outcome:10} {identity(mutant)}  {shown(mutant.before)}  ->  "
              f"{shown(mutant.after) or '(nothing)'}  {by}", flush=True)
        if outcome == "survived":
            print(f"     {mutant.mark}", flush=True)
    tree.compile(1)
    return report(results, candidates, arguments)


if __name__ == "__main__":
    sys.exit(main())
