#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Has tshark read what sideband-sim captures, and compares it with the bytes and with the tool.

usage: capture_check.py SIDEBAND_SIM

tshark is taken from the environment variable SIDEBAND_TSHARK, else from the path. Exit status 77
if there is none that knows MCTP, 1 if anything is malformed or read differently.
"""
import json
import os
import pathlib
import select
import shlex
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True  # no __pycache__ in the source tree
import dissector  # noqa: E402
import messages  # noqa: E402
import pcapng  # noqa: E402
from messages import (CONTROL, NCSI, NVME_MI, PLDM, PLDM_BASE, PLDM_FIRMWARE,  # noqa: E402
                      PLDM_FRU, PLDM_PLATFORM)

SKIPPED = 77
WRONG_USAGE = 2  # of the tool
COMMAND_FIELDS = {PLDM_BASE: "pldm.baseCommands", PLDM_PLATFORM: "pldm.platformCommands",
                  PLDM_FRU: "pldm.fruCommands"}
# Commands of which tshark 4.4 knows the number, but neither the name nor the fields.
UNNAMED = {(PLDM_PLATFORM, 0x10), (PLDM_PLATFORM, 0x20), (PLDM_PLATFORM, 0x50)}
UNNAMED_CONTROL = {0x06, 0x08, 0x0A, 0x0B, 0x0C, 0x0D}
# What the demo must have shown at least, or the comparison says little: requests by name.
EXPECTED = {"Set Endpoint ID", "Get Endpoint ID", "Get Endpoint UUID", "GetTID", "GetPLDMTypes",
            "GetPLDMVersion", "GetSensorReading", "GetStateSensorReadings",
            "Prepare for Endpoint Discovery", "Endpoint Discovery", "Allocate Endpoint IDs",
            "Get Routing Table Entries", "Discovery Notify", "Get Vendor Defined Message Support",
            "GetPDRRepositoryInfo", "GetPDR", "GetFRURecordTableMetadata", "GetFRURecordTable",
            "QueryDeviceIdentifiers", "GetFirmwareParameters", "RequestUpdate",
            "PassComponentTable", "UpdateComponent", "RequestFirmwareData", "TransferComplete",
            "VerifyComplete", "ApplyComplete", "ActivateFirmware",
            "Clear Initial State", "Get Link Status", "OEM Command",
            "NVM Subsystem Health Status Poll", "Get Log Page", "Identify", "Firmware Image Download",
            "Firmware Commit"}


# To the bridge of a served board, and to the first endpoint behind it (DSP0253).
FRAMES = ("7e 01 07 01 08 50 c8 00 80 02 25 db 7e", "7e 01 08 01 09 50 c9 01 80 00 02 66 db 7e",
          "7e 01 08 01 09 50 ca 01 80 00 04 1e 21 7e")
FLAG = b"\x7e"
ANSWER_S = 20


class Comparison:
    """One capture, read by tshark and by this check."""

    def __init__(self, tshark, capture, misnumbered=0):
        """misnumbered: of how many messages the last packet carries the sequence number behind its own."""
        self.packets = pcapng.read(capture)
        self.seen = dissector.dissect(tshark, capture)
        self.messages, self.strays = messages.assemble(self.packets)
        self.complaints = []
        self.misnumbered = misnumbered
        # tshark takes each part of a FRU table for a whole one and runs past the cut. So these
        # packets may be malformed to it, and this check puts the parts together by itself.
        self.fru_parts = {packet.number for message in self.messages
                          if messages.is_fru_answer(message)
                          and messages.fru_flag(message) != messages.START_AND_END
                          for packet in message.packets}
        self.unmarked_ends = 0
        self.names = set()
        self.nvme_messages = [0, 0]  # of one packet, of several

    def complain(self, packet, text):
        self.complaints.append(f"packet {packet.number} ({packet.interface} {packet.comment}): {text}")

    def expect(self, packet, what, seen, wanted):
        if seen != wanted:
            self.complain(packet, f"{what}: tshark reads {seen}, the bytes say {wanted}")

    def run(self):
        if not self.packets:
            self.complaints.append("the capture holds no packet")
        if len(self.seen) != len(self.packets):
            self.complaints.append(f"{len(self.packets)} packets, but tshark reads {len(self.seen)}")
            return
        for packet, seen in zip(self.packets, self.seen):
            self.compare_packet(packet, seen)
        ends = messages.misnumbered_ends(self.messages, self.strays)
        if len(ends) != self.misnumbered:
            self.complaints.append(f"{len(ends)} messages with a misnumbered end, and not {self.misnumbered}")
        for packet in self.strays:
            if packet.number not in ends:
                self.complain(packet, "continues no message")
        for message in self.messages:
            if message.last.number + 1 in ends:
                continue
            if message.complete:
                self.compare_message(message, self.seen[message.last.number - 1])
            elif messages.ends_like_the_bmc(message):
                self.unmarked_ends += 1
            else:
                self.complain(message.last, "the message has no end")
        for packet, right in messages.fru_tables(self.messages):
            if not right:
                self.complain(packet, "the parts of the FRU table do not fit its checksum")

    def compare_packet(self, packet, seen):
        """The transport header (DSP0236, table 1)."""
        if "mctp" not in seen.protocols:
            self.complain(packet, f"not dissected as MCTP but as {seen.protocols[-1]}")
            return
        for fault in seen.faults() if packet.number not in self.fru_parts else []:
            self.complain(packet, fault)
        for field, wanted in (("mctp.version", 1), ("mctp.dst", packet.dest),
                              ("mctp.src", packet.source), ("mctp.flags.som", packet.start),
                              ("mctp.flags.eom", packet.end), ("mctp.seq", packet.sequence),
                              ("mctp.tag.to", packet.tag_owner), ("mctp.tag.value", packet.tag)):
            self.expect(packet, field, seen.number(field), int(wanted))
        self.expect(packet, "sll.pkttype", seen.number("sll.pkttype"), 4 if packet.outgoing else 0)
        if not packet.comment or not packet.interface:
            self.complain(packet, "names no bus or has no comment")

    def compare_message(self, message, seen):
        self.expect(message.last, "mctp.msg.type", seen.number("mctp.msg.type"), message.type)
        if message.type == CONTROL:
            self.compare_control(message, seen)
        elif message.type == PLDM:
            self.compare_pldm(message, seen)
        elif message.type == NCSI:
            self.compare_ncsi(message.last, messages.NcsiPacket(message.data[1:]), seen)
        elif message.type == NVME_MI:
            self.compare_nvme(message, messages.NvmeMessage(message.data), seen)

    def compare_control(self, message, seen):
        """Control messages (DSP0236, clause 12)."""
        packet = message.last
        name = messages.CONTROL_COMMANDS.get(message.command)
        self.expect(packet, "mctpc.rq", seen.number("mctpc.rq"), int(message.request))
        self.expect(packet, "mctpc.instance", seen.number("mctpc.instance"), message.instance)
        self.expect(packet, "mctpc.command", seen.number("mctpc.command"), message.command)
        if name:
            self.names.add(name)
            if message.command not in UNNAMED_CONTROL:
                self.expect(packet, "the command", seen.text("mctpc.command"),
                            f"{name} ({message.command})")
        if not message.request:
            self.expect(packet, "mctpc.cc", seen.number("mctpc.cc"), message.completion_code)

    def compare_pldm(self, message, seen):
        """PLDM header, then the fields of the commands that tshark knows (DSP0240, DSP0248)."""
        packet, kind = message.last, (message.pldm_type, message.command)
        self.expect(packet, "pldm.direction", seen.number("pldm.direction"), 2 if message.request else 0)
        self.expect(packet, "pldm.instanceID", seen.number("pldm.instanceID"), message.instance)
        self.expect(packet, "pldm.type", seen.number("pldm.type"), message.pldm_type)
        field = COMMAND_FIELDS.get(message.pldm_type)
        name = messages.PLDM_COMMANDS.get(message.pldm_type, {}).get(message.command)
        if message.pldm_type == PLDM_FIRMWARE:
            # tshark 4.4 reads the header of this type and nothing behind it.
            self.names.add(name or f"firmware update command 0x{message.command:02x}")
            return
        if field:
            self.expect(packet, field, seen.number(field), message.command)
        if name:
            self.names.add(name)
            if kind not in UNNAMED:
                shown = (seen.text(field) or "").replace(" ", "")
                self.expect(packet, "the command", shown, f"{name}(0x{message.command:02x})")
        if not message.request:
            self.expect(packet, "pldm.completionCode", seen.number("pldm.completionCode"),
                        message.completion_code)
        if message.request or message.completion_code == 0:
            self.compare_body(message, seen, name)

    def compare_ncsi(self, packet, control, seen):
        """Header of a control packet and the codes of a response (DSP0222)."""
        name = messages.NCSI_COMMANDS.get(control.command)
        if name:
            self.names.add(name)
        self.expect(packet, "the command", seen.text("ncsi.type.code_masked"),
                    f"{name} (0x{control.command:02x})")
        for field, wanted in (("ncsi.mc_id", 0), ("ncsi.revision", 1), ("ncsi.iid", control.data[3]),
                              ("ncsi.type.resp", int(control.response)),
                              ("ncsi.chan", control.data[5]), ("ncsi.plen", control.data[7])):
            self.expect(packet, field, seen.number(field), wanted)
        if control.response:
            self.expect(packet, "the codes", (seen.number("ncsi.resp"), seen.number("ncsi.reason")),
                        control.codes)

    def compare_nvme(self, message, control, seen):
        """NVMe-MI message header, opcode or status, and the integrity check, which must be right."""
        packet, is_admin = message.last, control.kind == messages.NVME_ADMIN
        self.expect(packet, "nvme-mi.type", seen.number("nvme-mi.type"), control.kind)
        self.expect(packet, "nvme-mi.ror", seen.number("nvme-mi.ror"), int(control.response))
        field = f"nvme-mi.{'admin' if is_admin else 'mi'}.{'status' if control.response else 'opcode'}"
        self.expect(packet, field, seen.number(field), control.code)
        self.expect(packet, "nvme-mi.mic", seen.number("nvme-mi.mic"), control.check)
        if "[correct]" not in (seen.text("nvme-mi.mic") or ""):
            self.complain(packet, "tshark does not call the integrity check good")
        self.nvme_messages[len(message.packets) > 1] += 1
        if not control.response:
            name = messages.NVME_COMMANDS.get(control.kind, {}).get(control.code)
            self.names.add(name or f"NVMe-MI opcode 0x{control.code:02x}")

    def compare_body(self, message, seen, name):
        packet, body = message.last, message.body
        if name in ("GetSensorReading", "GetStateSensorReadings") and message.request:
            field = "pldm.platform.event.sensor_id"
            self.expect(packet, field, seen.number(field), int.from_bytes(body[:2], "little"))
        elif message.request:
            return
        elif name == "GetTID":
            self.expect(packet, "the TID", seen.number("pldm.base.TID"), body[0])
        elif name == "GetPLDMTypes":
            bits = [bit for bit in range(64) if body[bit // 8] >> bit % 8 & 1]
            self.expect(packet, "the types", seen.numbers("pldm.base.typeSupported"), bits)
        elif name == "GetSensorReading":
            self.expect(packet, "the reading", shown_reading(seen), messages.sensor_reading(body))
        elif name == "GetStateSensorReadings":
            self.expect(packet, "the states", shown_states(seen), messages.state_fields(body))


def shown_reading(seen):
    """tshark's view of a GetSensorReading answer, as messages.sensor_reading() gives it."""
    size = seen.number("pldm.platform.sensor.data_size")
    width, signed = messages.READING_FORMATS.get(size, (0, False))
    value = f"pldm.platform.event.sensor.data_{'s' if signed else 'u'}{8 * width}"
    names = ("pldm.platform.event.sensor.op_state", "pldm.platform.sensor_event_enable",
             "pldm.platform.present_event", "pldm.platform.prev_event", "pldm.platform.event_state",
             value)
    return (size, *(seen.number(name) for name in names))


def shown_states(seen):
    """tshark's view of a GetStateSensorReadings answer, as messages.state_fields() gives it."""
    names = ("op_state", "present_event", "prev_event", "event_state")
    columns = [seen.numbers("pldm.platform.event.sensor.op_state")]
    columns += [seen.numbers(f"pldm.platform.{name}") for name in names[1:]]
    fields = list(zip(*columns))
    return fields if seen.number("pldm.platform.sensor_comp_count") == len(fields) else None


class Tool:
    """The tool, run under the emulator if there is one."""

    def __init__(self, program, scratch):
        self.command = shlex.split(os.environ.get("MESON_EXE_WRAPPER", "")) + [program]
        self.scratch = pathlib.Path(scratch)

    def run(self, name, *arguments, tolerated=0):
        """(capture, JSON document) of one call of the tool; no document for the tolerated status."""
        capture = self.scratch / f"{name}.pcapng"
        done = subprocess.run([*self.command, "--json", "--capture", str(capture), *arguments],
                              capture_output=True, text=True, stdin=subprocess.DEVNULL)
        if tolerated and done.returncode == tolerated:
            return capture, None
        if done.returncode != 0:
            sys.exit(f"{' '.join(arguments)} ended with {done.returncode}: {done.stderr}{done.stdout}")
        return capture, json.loads(done.stdout)


    def serve(self, frames):
        """Capture of a board that is served, with these frames and an answer to each."""
        capture = self.scratch / "serve.pcapng"
        with subprocess.Popen([*self.command, "serve", "--json", "--capture", str(capture)],
                              stdout=subprocess.PIPE, text=True) as served:
            try:
                document = "".join(iter(served.stdout.readline, "}\n")) + "}\n"
                line = os.open(json.loads(document)["tty"], os.O_RDWR | os.O_NOCTTY)
                for frame in frames:
                    os.write(line, bytes.fromhex(frame))
                    answer = b""
                    while answer.count(FLAG) < 2 and select.select([line], [], [], ANSWER_S)[0]:
                        answer += os.read(line, 4096)
                os.close(line)
            finally:
                served.terminate()
        if served.returncode != 0:
            sys.exit(f"serve ended with {served.returncode}")
        return capture


def answers_by_sensor(comparison):
    """sensor -> tshark's views of the successful answers, oldest first; the TIDs under "tid"."""
    requests, answers = {}, {}
    for message in comparison.messages:
        if not message.complete or message.type != PLDM:
            continue
        key = (message.pldm_type, message.command, message.instance)
        if message.request:
            requests[key] = message.body
        elif key in requests and message.completion_code == 0:
            seen = comparison.seen[message.last.number - 1]
            if key[:2] == (PLDM_BASE, 0x02):
                answers.setdefault("tid", []).append(seen.number("pldm.base.TID"))
            elif key[:2] in ((PLDM_PLATFORM, 0x11), (PLDM_PLATFORM, 0x21)):
                sensor = int.from_bytes(requests[key][:2], "little")
                shown = shown_reading(seen) if key[1] == 0x11 else shown_states(seen)
                answers.setdefault(sensor, []).append(shown)
    return answers


def printed_reading(sensor):
    """The fields of a numeric sensor in the tool's JSON, as messages.sensor_reading() gives them."""
    names = ("sensor_data_size", "sensor_operational_state", "sensor_event_message_enable",
             "present_state", "previous_state", "event_state", "present_reading")
    return tuple(sensor[name] for name in names)


def printed_states(sensor):
    """The fields of a state sensor in the tool's JSON; of one that is not enabled the first only."""
    names = ("sensor_operational_state", "present_state", "previous_state", "event_state")
    return [tuple(field[name] for name in names if name in field) for field in sensor["state_field"]]


def compare_sensor(sensor, shown):
    """None, or how the tool's output differs from the last answer that tshark saw."""
    if not shown:
        return "no answer in the capture"
    wanted = shown[-1]
    if sensor["sensor_type"] == "numeric":
        printed = printed_reading(sensor)
        enabled = wanted is not None and wanted[1] == 0
        same = printed == wanted if enabled else printed[:-1] == wanted[:-1]
    else:
        printed = printed_states(sensor)
        same = wanted is not None and len(printed) == len(wanted) and all(
            field == answer[:len(field)] and (len(field) == 4) == (answer[0] == 0)
            for field, answer in zip(printed, wanted))
    return None if same else f"the tool prints {printed}, tshark reads {wanted}"


def check_sensors(tshark, tool, endpoint):
    """(complaints, number of sensors compared) for one endpoint."""
    capture, printed = tool.run(f"sensors-{endpoint}", "pldm", "sensors", endpoint,
                                tolerated=WRONG_USAGE)
    if printed is None:
        return [], 0  # the board describes no sensors of this one
    comparison = Comparison(tshark, capture)
    comparison.run()
    answers = answers_by_sensor(comparison)
    complaints = comparison.complaints
    for sensor in printed["sensors"]:
        difference = compare_sensor(sensor, answers.get(sensor["sensor_id"], []))
        if difference:
            complaints.append(f"{endpoint}, sensor {sensor['sensor_id']}: {difference}")
    capture, info = tool.run(f"info-{endpoint}", "pldm", "info", endpoint)
    comparison = Comparison(tshark, capture)
    comparison.run()
    complaints += comparison.complaints
    if answers_by_sensor(comparison).get("tid", [None])[-1] != info["tid"]:
        complaints.append(f"{endpoint}: the tool prints TID {info['tid']}, tshark reads another")
    return complaints, len(printed["sensors"])


def check_unmarked_end(tshark, tool, endpoint):
    """Complaints about a message of exactly two packets of the default size, 96 bytes."""
    body = "800002" + "00" * (2 * 96 - 1 - 3)
    capture, _ = tool.run("unmarked-end", "raw", endpoint, "pldm", body)
    comparison = Comparison(tshark, capture)
    comparison.run()
    print(f"{endpoint}: a request of two full packets, {comparison.unmarked_ends} without EOM")
    if comparison.unmarked_ends != 1:
        comparison.complaints.append("the last full packet was expected without EOM")
    return comparison.complaints


def check_demo(tshark, tool):
    """Complaints about the capture of the demo."""
    capture, _ = tool.run("demo", "demo")
    comparison = Comparison(tshark, capture, misnumbered=2)  # one each for the lax and the strict context
    comparison.run()
    complaints = comparison.complaints
    complaints += [f"the demo shows no {name}" for name in sorted(EXPECTED - comparison.names)]
    on_pcie = sum(packet.interface == "pcie" for packet in comparison.packets)
    if not on_pcie:
        complaints.append("the demo shows nothing on PCIe")
    if 0 in comparison.nvme_messages:
        complaints.append(f"NVMe-MI messages of one and of several packets: {comparison.nvme_messages}")
    print(f"demo: {len(comparison.packets)} packets, {on_pcie} of them on PCIe, "
          f"{len(comparison.messages)} messages, "
          f"{comparison.unmarked_ends} messages that end without EOM as the BMC ends them; "
          f"commands: {', '.join(sorted(comparison.names))}")
    return complaints


def check_serve(tshark, tool):
    """Complaints about the capture of a serial line."""
    comparison = Comparison(tshark, tool.serve(FRAMES))
    comparison.run()
    complaints = comparison.complaints
    on_line = sum(packet.interface == "serial" for packet in comparison.packets)
    if on_line != 2 * len(FRAMES) or on_line != len(comparison.packets):
        complaints.append(f"{on_line} of {len(comparison.packets)} packets are on the serial line")
    if comparison.names != {"Get Endpoint ID", "GetTID", "GetPLDMTypes"}:
        complaints.append(f"the serial line shows {sorted(comparison.names)}")
    print(f"serve: {on_line} packets on the serial line")
    return complaints


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    tshark = dissector.find()
    if not tshark:
        print("no tshark here knows MCTP (./dev tshark fetches one): the captures were not checked")
        return SKIPPED
    with tempfile.TemporaryDirectory() as scratch:
        tool = Tool(sys.argv[1], scratch)
        complaints = check_demo(tshark, tool) + check_serve(tshark, tool)
        _, scan = tool.run("scan", "scan")
        sensors = 0
        for endpoint in (found["endpoint"] for found in scan["endpoints"]
                         if PLDM in (found["message_types"] or [])):
            more, count = check_sensors(tshark, tool, endpoint)
            if count and not sensors:
                more += check_unmarked_end(tshark, tool, endpoint)
            complaints += more
            sensors += count
        if not sensors:
            complaints.append("no endpoint has a sensor")
    for complaint in complaints:
        print(complaint)
    print(f"{sensors} sensors compared, {len(complaints)} complaints")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
