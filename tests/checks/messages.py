# SPDX-License-Identifier: Apache-2.0
"""Puts MCTP packets together to messages and decodes them, apart from any other decoder.

DSP0236 (packets and control messages), DSP0240 (PLDM base), DSP0248 (sensors), DSP0257 (FRU data),
DSP0222 (NC-SI control packets), NVMe-MI.
"""
import dataclasses
import zlib

CONTROL, PLDM, NCSI, NVME_MI = 0, 1, 2, 4
PLDM_BASE, PLDM_PLATFORM, PLDM_FRU, PLDM_FIRMWARE = 0, 2, 4, 5

CONTROL_COMMANDS = {  # DSP0236, table 12
    0x01: "Set Endpoint ID", 0x02: "Get Endpoint ID", 0x03: "Get Endpoint UUID",
    0x04: "Get MCTP Version Support", 0x05: "Get Message Type Support",
    0x06: "Get Vendor Defined Message Support", 0x07: "Resolve Endpoint ID",
    0x08: "Allocate Endpoint IDs", 0x09: "Routing Information Update",
    0x0A: "Get Routing Table Entries", 0x0B: "Prepare for Endpoint Discovery",
    0x0C: "Endpoint Discovery", 0x0D: "Discovery Notify",
}
PLDM_COMMANDS = {
    PLDM_BASE: {0x01: "SetTID", 0x02: "GetTID", 0x03: "GetPLDMVersion", 0x04: "GetPLDMTypes",
                0x05: "GetPLDMCommands"},
    PLDM_PLATFORM: {0x10: "SetNumericSensorEnable", 0x11: "GetSensorReading",
                    0x20: "SetStateSensorEnables", 0x21: "GetStateSensorReadings",
                    0x50: "GetPDRRepositoryInfo", 0x51: "GetPDR"},
    PLDM_FRU: {0x01: "GetFRURecordTableMetadata", 0x02: "GetFRURecordTable"},
    PLDM_FIRMWARE: {0x01: "QueryDeviceIdentifiers", 0x02: "GetFirmwareParameters",
                    0x10: "RequestUpdate", 0x11: "GetPackageData", 0x12: "GetDeviceMetaData",
                    0x13: "PassComponentTable", 0x14: "UpdateComponent",
                    0x15: "RequestFirmwareData", 0x16: "TransferComplete", 0x17: "VerifyComplete",
                    0x18: "ApplyComplete", 0x1A: "ActivateFirmware", 0x1B: "GetStatus",
                    0x1C: "CancelUpdateComponent", 0x1D: "CancelUpdate"},
}
NCSI_COMMANDS = {  # DSP0222, table of command and response types
    0x00: "Clear Initial State", 0x01: "Select Package", 0x02: "Deselect Package",
    0x0A: "Get Link Status", 0x50: "OEM Command",
}
NVME_MANAGEMENT, NVME_ADMIN = 1, 2
NVME_COMMANDS = {  # NVMe-MI, opcodes of its commands; NVMe base specification, admin commands
    NVME_MANAGEMENT: {0x00: "Read NVMe-MI Data Structure", 0x01: "NVM Subsystem Health Status Poll",
                      0x02: "Controller Health Status Poll", 0x03: "Configuration Set",
                      0x04: "Configuration Get", 0x05: "VPD Read", 0x06: "VPD Write", 0x07: "Reset"},
    NVME_ADMIN: {0x02: "Get Log Page", 0x06: "Identify", 0x09: "Set Features", 0x0A: "Get Features",
                 0x0D: "Namespace Management", 0x10: "Firmware Commit",
                 0x11: "Firmware Image Download", 0x15: "Namespace Attachment", 0x24: "Lockdown",
                 0x80: "Format NVM", 0x84: "Sanitize"},
}
# sensorDataSize (DSP0248, GetSensorReading): width in bytes and sign.
READING_FORMATS = {0: (1, False), 1: (1, True), 2: (2, False), 3: (2, True), 4: (4, False),
                   5: (4, True)}


@dataclasses.dataclass
class Message:
    """One message: its packets, and its bytes from the type byte on."""
    packets: list
    complete: bool

    @property
    def data(self):
        return b"".join(packet.payload for packet in self.packets)

    @property
    def type(self):
        return self.data[0] & 0x7F

    @property
    def first(self):
        return self.packets[0]

    @property
    def last(self):
        return self.packets[-1]

    @property
    def request(self):
        return bool(self.data[1] & 0x80)

    @property
    def instance(self):
        return self.data[1] & 0x1F

    @property
    def pldm_type(self):
        return self.data[2] & 0x3F

    @property
    def command(self):
        return self.data[3] if self.type == PLDM else self.data[2]

    @property
    def completion_code(self):
        return self.data[4] if self.type == PLDM else self.data[3]

    @property
    def body(self):
        """What follows the command of a request or the completion code of a response."""
        at = (4 if self.type == PLDM else 3) + (0 if self.request else 1)
        return self.data[at:]


@dataclasses.dataclass
class NcsiPacket:
    """The control packet that a message carries behind its type byte (DSP0222)."""
    data: bytes

    @property
    def response(self):
        return bool(self.data[4] & 0x80)

    @property
    def command(self):
        return self.data[4] & 0x7F

    @property
    def codes(self):
        """Response code and reason code."""
        return (int.from_bytes(self.data[16:18], "big"), int.from_bytes(self.data[18:20], "big"))


@dataclasses.dataclass
class NvmeMessage:
    """An NVMe-MI message, its type byte and its integrity check included."""
    data: bytes

    @property
    def response(self):
        return bool(self.data[1] & 0x80)

    @property
    def kind(self):
        """1: a management command, 2: an admin command."""
        return self.data[1] >> 3 & 0x0F

    @property
    def code(self):
        """The opcode of a request, the status of a response."""
        return self.data[4]

    @property
    def check(self):
        """The integrity check as tshark shows it: its bytes in the order of the wire."""
        return int.from_bytes(self.data[-4:], "big")


def assemble(packets):
    """(messages, stray packets that continue no message); messages in the order of their last packets."""
    messages, strays, running = [], [], {}
    for packet in packets:
        key = (packet.interface, packet.source, packet.dest, packet.tag, packet.tag_owner)
        if packet.start:
            if key in running:
                messages.append(Message(running.pop(key), False))
            running[key] = []
        elif key not in running:
            strays.append(packet)
            continue
        elif packet.sequence != (running[key][-1].sequence + 1) & 3:
            strays.append(packet)
            continue
        running[key].append(packet)
        if packet.end:
            messages.append(Message(running.pop(key), True))
    messages += [Message(packets, False) for packets in running.values()]
    return sorted(messages, key=lambda message: message.last.number), strays


def misnumbered_ends(found, strays):
    """The numbers of the packets that would end the message in front of them but for their own sequence number,
    which is that of the packet behind."""
    open_ends = {message.last.number: message.last for message in found if not message.complete}
    ends = set()
    for packet in strays:
        before = open_ends.get(packet.number - 1)
        same = before is not None and (before.source, before.dest, before.tag) == (packet.source, packet.dest, packet.tag)
        if same and packet.end and packet.sequence == (before.sequence + 2) % 4:
            ends.add(packet.number)
    return ends


def ends_like_the_bmc(message):
    """
    Whether an unfinished message is one whose end the BMC does not mark: the last packet of a
    message of several packets that fills its unit goes out without EOM, as deployed firmware has it.
    """
    sizes = {len(packet.payload) for packet in message.packets}
    return message.first.outgoing and len(message.packets) > 1 and len(sizes) == 1


def sensor_reading(body):
    """(sensorDataSize, operational, event enable, present, previous, event state, reading)."""
    width, signed = READING_FORMATS[body[0]]
    return (*body[:6], int.from_bytes(body[6:6 + width], "little", signed=signed))


def state_fields(body):
    """The four-byte fields of GetStateSensorReadings."""
    return [tuple(body[1 + 4 * index:5 + 4 * index]) for index in range(body[0])]


START, END, START_AND_END = 0, 4, 5  # TransferFlag


def is_fru_answer(message):
    """Whether a message is a successful answer to GetFRURecordTable (DSP0257)."""
    return (message.complete and message.type == PLDM and not message.request and
            (message.pldm_type, message.command) == (PLDM_FRU, 0x02) and message.completion_code == 0)


def fru_flag(message):
    return message.body[4]


def fru_tables(messages):
    """The tables that came in several answers: [(last packet, whether their checksum is right)]."""
    tables, parts = [], {}
    for message in filter(is_fru_answer, messages):
        key = (message.first.interface, message.first.source)
        if fru_flag(message) in (START, START_AND_END):
            parts[key] = b""
        parts[key] = parts.get(key, b"") + message.body[5:]
        if fru_flag(message) == END:
            table = parts.pop(key)
            checksum = int.from_bytes(table[-4:], "little")  # of the table and its pad bytes
            tables.append((message.last, zlib.crc32(table[:-4]) == checksum))
    return tables
