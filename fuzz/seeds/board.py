# SPDX-License-Identifier: Apache-2.0
"""Board files: the seeds of fuzz-board and fuzz-linux-board."""
import json
import pathlib

BUILT_IN = pathlib.Path(__file__).parents[2] / "platform/sim/boards/default.json"


def text(value, **more):
    return json.dumps(value | more, separators=(",", ":")).encode()


def wrong_texts(good):
    """What is no JSON, and what a reader of JSON may stumble over."""
    yield "empty", b""
    yield "nothing", b"{}"
    yield "null", b"null"
    yield "list", b"[]"
    yield "cut", good[:len(good) // 2]
    yield "deep", b"[" * 2000
    yield "deep-objects", b'{"a":' * 300 + b"1" + b"}" * 300
    yield "twice", b'{"name":"a",\n"name":"b"}'
    yield "control-characters", '{"na\\u001bme":"\\u0000\\u009b","\u007f":"\u009b"}'.encode()
    yield "no-utf-8", b'{"name":"\xff\xc3","\x80":1}'
    yield "numbers", b'{"name":1e999,"devices":-0,"buses":18446744073709551616,"bmc":0x1}'
    yield "lines", b"{\r\n\r\n\"devices\":\r\n[\n{}\n,{}\n]\n}"


def board_seeds():
    """The built-in board, each device of it on a board of its own."""
    whole = json.loads(BUILT_IN.read_text())
    head = {key: value for key, value in whole.items() if key != "devices"}
    yield "head", text(head)
    for device in whole["devices"]:
        alone = {"name": "b", "devices": [device]}
        yield f"device-{device['name']}", text(alone, buses=whole["buses"])
    yield "two-of-one-name", text({"name": "b", "buses": [{"bus": 1}], "devices": [
        {"name": "a", "type": "replay", "bus": 1, "address": address} for address in (0x20, 0x20)]})
    yield "replay", text({"name": "b", "buses": [{"bus": 1}], "devices": [
        {"name": "r", "type": "replay", "bus": 1, "address": "0x26", "exchanges": [
            {"message_type": 1, "request": "800002", "response": "00000201"}]}]})
    yield "owner", text({"name": "b", "devices": [
        {"name": "m", "type": "mpio", "transport": "pcie", "bdf": "00:00.0"},
        {"name": "o", "type": "bus_owner", "transport": "pcie", "bdf": "80:00.0", "eid": 64,
         "assign": 40}]})
    yield from wrong_texts(text(head))


def linux_board_seeds():
    nic = {"name": "nic0", "bus": 2, "address": "0x64", "mux": {"address": "0xe0", "channel": 1},
           "card": {"bdf": "41:00.0", "vendor_id": "0x15b3", "flags": "0x20000", "slot": 1}}
    good = {"name": "rack7", "run_folder": "/run/sideband", "bmc": {"eid": 8, "address": "0x20"},
            "power": {"main": {"file": "/sys/class/gpio/gpio7/value", "on": "1"}, "standby_option": 1},
            "pcie": {"net": 1},
            "i2c": {"device": "/dev/i2c-{bus}", "slave_queue": "/q/{bus}-10{address}"},
            "buses": [{"bus": 2, "muxes": [
                {"address": "0xe0", "channels": 4},
                {"address": "0xe2", "channels": 8, "behind": {"address": "0xe0", "channel": 2}}]}],
            "devices": [nic, {"name": "ssd0", "mctp": {"net": 1, "eid": 10}, "read_timeout_ms": 2000},
                        {"name": "gpu0", "bus": 3, "address": "0x9e", "pec": "software",
                         "transmission_unit": 100, "i2c_delay_us": 50}]}
    yield "whole", text(good)
    yield "command", text(good, power={"main": {"command": "power-state"}})
    yield "behind", text(good, devices=[nic | {"mux": {"address": "0xe2", "channel": 7}}])
    yield "ring", text(good, buses=[{"bus": 2, "muxes": [
        {"address": "0xe0", "channels": 4, "behind": {"address": "0xe2", "channel": 1}},
        {"address": "0xe2", "channels": 4, "behind": {"address": "0xe0", "channel": 1}}]}])
    yield "two-of-one-name", text(good, devices=[nic, nic])
    yield from wrong_texts(text(good))
