# SPDX-License-Identifier: Apache-2.0
"""Runs a tshark that knows MCTP and gives what it read of each packet."""
import os
import re
import shutil
import subprocess
import xml.etree.ElementTree as ElementTree

ERROR = 0x00800000  # the expert severities of tshark, from here on: errors
NO_XML = re.compile("[^\t\n\r\x20-\ud7ff\ue000-\ufffd]")


class Dissection:
    """One packet as tshark read it."""

    def __init__(self, element):
        self.protocols = [layer.get("name") for layer in element.findall("proto")]
        self.fields = {}
        for field in element.iter("field"):
            self.fields.setdefault(field.get("name"), []).append(field)

    def shown(self, name):
        """Every value of a field, in order, as tshark writes it."""
        return [field.get("show") for field in self.fields.get(name, [])]

    def text(self, name):
        """The readable form of the first such field, its name left out."""
        field = self.fields.get(name, [None])[0]
        return None if field is None else field.get("showname", "").split(": ", 1)[-1]

    def number(self, name):
        """The first value of a field as a number; None if there is none."""
        values = self.numbers(name)
        return values[0] if values else None

    def numbers(self, name):
        """Every value of a field as a number."""
        truth = {"True": 1, "False": 0}
        return [truth[value] if value in truth else int(value, 0) for value in self.shown(name)]

    def faults(self):
        """What tshark calls wrong with the packet."""
        said = [] if "_ws.malformed" not in self.protocols + list(self.fields) else ["malformed"]
        for severity, message in zip(self.numbers("_ws.expert.severity"),
                                     self.shown("_ws.expert.message")):
            if severity >= ERROR:
                said.append(message)
        return said


def find():
    """The tshark to use, or None if there is none that knows MCTP."""
    tshark = os.environ.get("SIDEBAND_TSHARK") or shutil.which("tshark")
    if not tshark:
        return None
    try:
        listing = subprocess.run([tshark, "-G", "protocols"], capture_output=True, text=True,
                                 check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return None
    return tshark if re.search(r"\tmctp\t", listing) else None


def dissect(tshark, capture):
    """What tshark read of every packet of a capture."""
    done = subprocess.run([tshark, "-r", capture, "-T", "pdml"], capture_output=True, check=True)
    # tshark writes some device bytes into its XML as they are.
    text = NO_XML.sub("?", done.stdout.decode("utf-8", "replace"))
    return [Dissection(packet) for packet in ElementTree.fromstring(text).findall("packet")]
