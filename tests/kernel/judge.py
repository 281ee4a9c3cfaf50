# SPDX-License-Identifier: Apache-2.0
"""What every command of `sideband` keeps to, whatever a device sends: it ends in time, says in one line what failed, and
prints one document."""
import json
import re
import subprocess
import time

# Longer than its own --timeout: a wait that has begun ends as it would have, an update is cancelled on the card, and
# the machine may be busy.
BOUND_S = 10
# What a text must not have: control characters, separators of lines, marks that turn its direction.
CONTROL = re.compile("[\0-\x1f\x7f-\x9f\u061c\u200e\u200f\u2028\u2029\u202a-\u202e\u2066-\u2069]")
FAILED, BAD_FILE = 1, 3


def texts(document):
    """Every text of a document."""
    if isinstance(document, dict):
        return [*document, *(text for value in document.values() for text in texts(value))]
    if isinstance(document, list):
        return [text for value in document for text in texts(value)]
    return [document] if isinstance(document, str) else []


def no_pair_twice(pairs):
    """An object whose keys are all different."""
    if len({key for key, _ in pairs}) != len(pairs):
        raise ValueError("a key stands there twice")
    return dict(pairs)


def objections_to_output(status, output, error):
    """What is wrong with what a command has printed."""
    found = []
    document = json.loads(output.decode(), object_pairs_hook=no_pair_twice)
    if any(CONTROL.search(text) for text in texts(document)):
        found.append("a control character in the document")
    lines = error.decode().splitlines(keepends=True)
    if any(not line.startswith("sideband: ") or line[-1] != "\n" or CONTROL.search(line[:-1]) for line in lines):
        found.append("a line that is not one of an error")
    # What was read until something failed is shown; there is a line for each record or reading that failed.
    partial = "error" not in document
    if (status != 0) != bool(lines) or len(lines) > 1 and not partial:
        found.append(f"{len(lines)} lines of error")
    if partial and "endpoint" not in document or not partial and document["error"].get("exit_status") != status:
        found.append("neither a result nor the error of this exit status in the document")
    return found


def objections_to(done, words):
    """What is wrong with a command that has ended."""
    # For a card that lies about itself the package is one for another card: a bad file.
    allowed = (0, FAILED, BAD_FILE) if "fw-update" in words else (0, FAILED)
    found = [] if done.returncode in allowed else [f"it ended with {done.returncode}"]
    try:
        found += objections_to_output(done.returncode, done.stdout, done.stderr)
    except (ValueError, AttributeError) as error:
        found.append(f"what it printed is no document: {error}")
    if found:
        found.append(f"exit status {done.returncode}, stdout {done.stdout[-400:]!r}, stderr {done.stderr[-400:]!r}")
    return found


class Judge:
    """Runs commands; what they did wrong, how long they took and how they ended."""

    def __init__(self, sideband, how):
        self.sideband, self.how = sideband, how
        self.statuses, self.seconds, self.longest = {}, 0.0, (0.0, "")

    def run(self, words, limit):
        """One command, with seconds as its own time limit: (exit status, what is wrong with it)"""
        command = [self.sideband.program, "--board", self.sideband.board, "--json", self.how, "--timeout", limit, *words]
        title, started = f"{self.how} {' '.join(words)}", time.monotonic()
        try:
            done = subprocess.run([str(word) for word in command], capture_output=True, stdin=subprocess.DEVNULL,
                                  timeout=limit + BOUND_S, check=False)
            status, found = done.returncode, objections_to(done, words)
        except subprocess.TimeoutExpired:
            status, found = None, [f"it has not ended after {limit + BOUND_S} s"]
        took = time.monotonic() - started
        self.seconds += took
        self.longest = max(self.longest, (took, title))
        self.statuses[status] = self.statuses.get(status, 0) + 1
        return status, [f"{title}: {'; '.join(found)}"] if found else []

    def __str__(self):
        ends = ", ".join(f"{count} ended with {status}" for status, count in self.statuses.items())
        return f"{self.how}: {ends}; {self.seconds:.1f} s, {self.longest[0]:.1f} s of them {self.longest[1]}"
