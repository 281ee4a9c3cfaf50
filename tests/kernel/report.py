# SPDX-License-Identifier: Apache-2.0
"""Cases of ./dev kernel: what each compared, whether it held, and the count of them all."""
import contextlib
import json
import textwrap
import time
import traceback


# Characters of what was compared that a line shows.
LABEL = 60


class Skip(Exception):
    """A case that cannot be run here; the text says why."""


class Case:
    """One case. It passes if it compared something and everything held."""

    def __init__(self, name):
        self.name = name
        self.compared = []  # what each comparison was of
        self.complaints = []
        self.notes = []

    def equal(self, what, theirs, ours):
        """Both sides say the same."""
        self.compared.append(what)
        if theirs != ours:
            self.complaints.append(f"{what}: {theirs!r}, expected {ours!r}")

    def that(self, what, holds):
        """Something that must hold; `what` says it for the case that it does not."""
        self.compared.append(what)
        if not holds:
            self.complaints.append(what)

    def note(self, text):
        """A figure or a limit that the reader should know."""
        self.notes.append(text)


class Report:
    """All cases of a run."""

    def __init__(self):
        self.cases = []

    @contextlib.contextmanager
    def case(self, name):
        """Runs one case; whatever it raises is its failure and stops none of the others."""
        case, started, outcome, reason = Case(name), time.monotonic(), "", ""
        try:
            yield case
        except Skip as skip:
            outcome, reason = "skipped", str(skip)
        except Exception as error:  # pylint: disable=broad-except
            where = traceback.extract_tb(error.__traceback__)[-1]
            case.complaints.append(f"{type(error).__name__}: {error} ({where.name}, line {where.lineno})")
        if not outcome:
            if not case.compared and not case.complaints:
                case.complaints.append("nothing was compared")
            outcome = "failed" if case.complaints else "passed"
        self.cases.append({"name": name, "outcome": outcome, "compared": len(case.compared),
                           "complaints": case.complaints, "reason": reason})
        self.show(case, outcome, reason, time.monotonic() - started)

    @staticmethod
    def show(case, outcome, reason, seconds):
        """The lines of one case."""
        said = reason or f"{len(case.compared)} compared"
        print(f"{outcome.upper():<8} {case.name}: {said} ({seconds:.1f} s)", flush=True)
        listed = "; ".join(" ".join(what.split())[:LABEL] for what in case.compared)
        for text in textwrap.wrap(listed, width=120, break_long_words=False):
            print(f"         {text}", flush=True)
        for text in case.notes:
            print(f"         {text}", flush=True)
        for text in case.complaints:
            print(f"    {text}", flush=True)

    def count(self, outcome):
        """How many cases came out so."""
        return sum(case["outcome"] == outcome for case in self.cases)

    def end(self, folder):
        """The last line, and the results for programs; the exit status."""
        passed, failed, skipped = (self.count(what) for what in ("passed", "failed", "skipped"))
        compared = sum(case["compared"] for case in self.cases)
        (folder / "result.json").write_text(json.dumps(
            {"passed": passed, "failed": failed, "skipped": skipped, "compared": compared,
             "cases": self.cases}, indent=2) + "\n")
        (folder / "total").write_text(f"{passed} {failed}\n")
        print(f"kernel: {passed} passed, {failed} failed, {skipped} skipped; {compared} things compared",
              flush=True)
        return 1 if failed or not passed else 0
