"""A client that knows docs/wire-protocol.md and nothing else: offsets, numbers and sizes are read from its tables."""

import json
import os
import pathlib
import re
import socket
import struct
import sys
import unittest

TREE = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(TREE / "tests/integration"))

from mixd import Mixd, mixsh  # noqa: E402  (needs the path above)

PAPER = (TREE / "docs/wire-protocol.md").read_text(encoding="utf-8")
FORMATS = {"u8": "<B", "u16": "<H", "u32": "<I", "i32": "<i"}
GATEWAY, CONTROL = (int(number) for number in re.findall(r"^Daemon (\d+) of this board", PAPER, re.MULTILINE))
MALFORMED, UNKNOWN_OPERATION, UNKNOWN_ATTRIBUTE, BAD_VALUE = 1, 3, 4, 6


def table(heading, after=""):
    """The rows of the first table with these headings that follows the text `after`."""
    rows = (PAPER.partition(after)[2] if after else PAPER).partition(f"\n{heading}\n")[2].partition("\n\n")[0].splitlines()[1:]
    assert rows, f"no table {heading}"
    return [[cell.strip() for cell in row.strip("|").split("|")] for row in rows]


def record(after):
    """Name to offset and width, of a table of a record."""
    return {name: (int(offset), width) for offset, width, name, _ in table("| offset | width | field | |", after)}


HEADER, ARP_ROW = record("\n## Messages"), record("For example an ARP row")
OBJECTS = table("| object | number | operations | attributes |")
HEADER_SIZE = max(offset + struct.calcsize(FORMATS[width]) for offset, width in HEADER.values())
KIND = {name: int(number) for number, name, *_ in table("| kind | | from | payload |")}


class Connection:
    """To one daemon of node 0. The hello is sent unless `hello` is false."""

    def __init__(self, mixd, daemon, hello=True):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.socket.settimeout(20)
        self.socket.connect(os.path.join(mixd.run_dir, "node0", f"0.{daemon}.sock"))
        if hello:
            self.welcome = self.ask("hello", payload=struct.pack("<HHI32s", 1, 0, os.getpid(), b"a reader"))[1]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()

    def send(self, kind, type=0, sequence=0, payload=b"", version=1):
        message = bytearray(HEADER_SIZE)
        for name, value in {"magic": 0x3158494d, "version": version, "kind": KIND[kind], "type": type,
                            "sequence": sequence, "status": 0, "length": len(payload)}.items():
            struct.pack_into(FORMATS[HEADER[name][1]], message, HEADER[name][0], value)
        self.socket.send(bytes(message) + payload)

    def receive(self):
        datagram = self.socket.recv(1 << 17)
        header = {name: struct.unpack_from(FORMATS[width], datagram, offset)[0] for name, (offset, width) in HEADER.items()}
        assert header["length"] == len(datagram) - HEADER_SIZE, header
        return header, datagram[HEADER_SIZE:]

    def ask(self, kind="request", **what):
        self.send(kind, **what)
        return self.receive()


def commit(object_number, operation, *attributes, cookie=b""):
    """Each attribute: number, kind, value."""
    packed = b"".join(struct.pack("<BBH", number, kind, len(value)) + value for number, kind, value in attributes)
    return struct.pack("<IIBBHHH", object_number, operation, 0, 0, 0, len(cookie), len(attributes)) + cookie + packed


def attribute_of(text):
    """From "1 interface name": its number, kind and two sizes of a value, the longest that goes and one too long."""
    number = int(text.split()[0])
    if found := re.search(r"\b(u8|u16|u32|word)$", text):
        kind = ("u8", "u16", "u32", "word").index(found[1]) + 1
        return number, kind, 1 << (kind - 1), None
    if re.search(r"\bMAC\b", text) or "(16 bytes)" in text:
        return number, 5, 16 if "(16 bytes)" in text else 6, None
    longest = re.search(r"at most (\d+) bytes", text) or re.search(r"Names have at most (\d+) bytes", PAPER)
    return number, 6, int(longest[1]), int(longest[1]) + 1


class WireProtocol(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.mixd = Mixd("--scenario", str(TREE / "examples/scenarios/branch.toml"))
        cls.addClassCleanup(cls.mixd.remove)

    def test_a_hello_is_welcomed(self):
        with Connection(self.mixd, CONTROL, hello=False) as control:
            header, payload = control.ask("hello", payload=struct.pack("<HHI32s", 1, 0, 7, b"a reader"))
        self.assertEqual((header["kind"], header["version"]), (KIND["welcome"], 1))
        version, zero, pid, daemon_version, service = struct.unpack("<HHI32s32s", payload)
        self.assertEqual((version, zero, pid), (1, 0, self.mixd.process.pid))
        self.assertRegex(daemon_version.rstrip(b"\0"), rb"^\d+\.\d+\.\d+")
        self.assertRegex(service.rstrip(b"\0"), rb"^control(\+\d+)?$")

    def test_another_version_is_refused_with_both_named(self):
        with Connection(self.mixd, CONTROL, hello=False) as control:
            header, payload = control.ask("hello", payload=struct.pack("<HHI32s", 9, 0, 7, b"a reader"), version=9)
            self.assertEqual(header["kind"], KIND["refusal"])
            self.assertRegex(payload.decode(), r"\b1\b.*\b9\b|\b9\b.*\b1\b")
            self.assertEqual(control.socket.recv(100), b"", "the connection is closed")

    def test_a_ping_comes_back(self):
        with Connection(self.mixd, GATEWAY) as gateway:
            header, payload = gateway.ask("ping", sequence=77, payload=b"anything")
        self.assertEqual((header["kind"], header["sequence"], payload), (KIND["pong"], 77, b"anything"))

    def test_a_notice_is_not_answered(self):
        with Connection(self.mixd, CONTROL) as control:
            control.send("notice", type=254)
            header, _ = control.ask("ping", sequence=5)
        self.assertEqual((header["kind"], header["sequence"]), (KIND["pong"], 5))

    def test_control_lists_rows_of_the_stated_sizes(self):
        sizes = {int(what.split()[0]): int(found[1]) for what, _, reply in
                 table("| type | request | reply |", after="\n## Control")
                 if (found := re.search(r"page of (\d+) bytes", reply))}
        self.assertEqual(set(sizes), {240, 245, 253})
        with Connection(self.mixd, GATEWAY) as gateway:
            self.assertEqual(struct.unpack_from("<i", self.saved(gateway)[1])[0], 0)
        with Connection(self.mixd, CONTROL) as control:
            for number, size in sizes.items():
                header, payload = control.ask(type=number, sequence=number, payload=struct.pack("<I", 0))
                self.assertEqual((header["kind"], header["type"], header["sequence"], header["status"]),
                                 (KIND["reply"], number, number, 0))
                _, rows = struct.unpack_from("<II", payload)
                self.assertGreater(rows, 0)
                self.assertEqual(len(payload), 8 + rows * size)
            about = int(re.search(r"\| 254 about \| nothing \| (\d+) bytes", PAPER)[1])
            self.assertEqual(len(control.ask(type=254)[1]), about)

    def test_faults_are_set_listed_and_cleared(self):
        size = int(re.search(r"Fault \((\d+) bytes\)", PAPER)[1])
        fault = struct.pack("<IIIiII", 17, 3, 1, 250, 4, 0)
        self.assertEqual(len(fault), size)
        with Connection(self.mixd, CONTROL) as control:
            self.assertEqual(control.ask(type=250, payload=fault)[0]["status"], 0)
            self.assertEqual(control.ask(type=252, payload=bytes(4))[1], struct.pack("<II", 0, 1) + fault)
            self.assertEqual(control.ask(type=251, payload=struct.pack("<II", 0xffffffff, 0))[0]["status"], 1)
            self.assertEqual(control.ask(type=252, payload=bytes(4))[1], struct.pack("<II", 0, 0))

    def saved(self, gateway):
        texts = [b"\xff\xff"] * 5
        for at, text in ((2, b"admin"), (3, b"paper"), (4, b"today")):
            texts[at] = struct.pack("<H", len(text)) + text
        return gateway.ask(type=4, payload=struct.pack("<5i", 0, 0, 0, 0, 0) + b"".join(texts))

    def result_of(self, gateway, payload, type=2):
        header, answer = gateway.ask(type=type, payload=payload)
        self.assertEqual((header["kind"], header["status"]), (KIND["reply"], 0))
        result, _, length, _, _ = struct.unpack_from("<iiHBB", answer)
        self.assertGreaterEqual(len(answer), 12 + length)
        return result

    def test_the_gateway_takes_the_stated_operations_and_attributes(self):
        with Connection(self.mixd, GATEWAY) as gateway:
            for name, number, operations, attributes in OBJECTS:
                if operations == "record":
                    continue
                object_number, operations = int(number, 16), [int(one) for one in operations.split(",")]
                for operation in range(16):
                    type = 3 if operation == 8 else 2
                    unknown = self.result_of(gateway, commit(object_number, operation), type) == UNKNOWN_OPERATION
                    self.assertEqual(unknown, operation not in operations, f"{name}: {operation}")
                described = [attribute_of(one) for one in attributes.split(", ")]
                first, type = operations[0], 3 if operations[0] == 8 else 2

                def result(*attribute):
                    return self.result_of(gateway, commit(object_number, first, attribute), type)

                for one, kind, size, too_long in described:
                    with self.subTest(object=name, attribute=one):
                        value = b"a" * size
                        self.assertNotIn(result(one, kind, value), (MALFORMED, UNKNOWN_ATTRIBUTE))
                        self.assertEqual(result(one, kind % 6 + 1, value), MALFORMED)
                        if too_long:
                            self.assertEqual(result(one, kind, b"a" * too_long), BAD_VALUE)
                        else:
                            self.assertEqual(result(one, kind, value + b"a"), MALFORMED)
                for other in set(range(16)) - {one for one, *_ in described}:
                    self.assertEqual(result(other, 1, b"a"), UNKNOWN_ATTRIBUTE, f"{name}: {other}")

    def test_a_record_sets_its_fields(self):
        row = next(row for row in OBJECTS if row[2] == "record")
        first, second = (int(one) for one in re.findall(r"\d+", row[3]))
        values = [0] * (second + 1)
        values[first], values[second] = 9, 25
        payload = struct.pack("<IIHBB", int(row[1], 16), 1 << first | 1 << second, len(values), 0, 0)
        payload += struct.pack(f"<{len(values)}I", *values)
        with Connection(self.mixd, GATEWAY) as gateway:
            self.assertEqual(self.result_of(gateway, payload, type=1), 0)
        shown = json.loads(mixsh(self.mixd, "show fragment", options=["--json"]).stdout)
        self.assertEqual(shown, {"limit": 9, "reassembly_s": 25})

    def test_a_saved_configuration_is_listed_and_deleted(self):
        size = int(re.search(r"page of (\d+) bytes each: name", PAPER)[1])
        with Connection(self.mixd, GATEWAY) as gateway, Connection(self.mixd, CONTROL) as control:
            self.saved(gateway)
            _, payload = control.ask(type=240, payload=bytes(4))
            name, saver, when, bytes_used = struct.unpack("<64s64s32sQ", payload[-size:])
            self.assertRegex(name.rstrip(b"\0"), rb"^paper-\d+$")
            self.assertEqual((saver.rstrip(b"\0"), when.rstrip(b"\0")), (b"admin", b"today"))
            self.assertGreater(bytes_used, 0)
            self.assertEqual(control.ask(type=244, payload=name)[0]["status"], 0)
            self.assertNotIn(name, control.ask(type=240, payload=bytes(4))[1])

    def test_the_gateway_reads_in_batches(self):
        row_size = int(re.search(r"the rows \((\d+) bytes each\)", PAPER)[1])
        with Connection(self.mixd, GATEWAY) as gateway:
            for name in (b"br0", b"ge0"):
                attributes = ((0, 6, name), (1, 1, b"\1"))
                self.assertEqual(self.result_of(gateway, commit(0x060001, 2, *attributes)), 0)
            cookie, rows, batches, more = struct.pack("<32sHHHHI", b"", 0, 255, 0, 1, 0), [], 0, 1
            while more:
                _, answer = gateway.ask(type=3, payload=commit(0x060001, 8, cookie=cookie))
                result, _, length, more, zero = struct.unpack_from("<iiHBB", answer)
                self.assertEqual((result, zero), (0, 0))
                batch = answer[12 + length:]
                cookie, count = batch[:44], struct.unpack_from("<H", batch, 44)[0]
                self.assertEqual(len(batch), 46 + count * row_size)
                rows += [batch[at:at + row_size] for at in range(46, len(batch), row_size)]
                batches += 1
        self.assertEqual([row.partition(b"\0")[0] for row in rows], [b"br0", b"ge0"])
        self.assertEqual(batches, 2)

    def test_the_gateway_tells_the_virtual_system(self):
        with Connection(self.mixd, GATEWAY) as gateway:
            header, answer = gateway.ask(type=5)
        self.assertEqual((header["status"], answer), (0, b""))

    def test_a_trace_shows_the_row_as_it_is_described(self):
        trace = os.path.join(self.mixd.directory, "trace")
        shown = mixsh(self.mixd, "show arp", options=["--json"], MIX_TRACE=trace)
        entry = next(one for one in map(json.loads, shown.stdout.splitlines()) if one["address"] == "192.168.10.20")
        with open(trace, encoding="utf-8") as file:
            exchanges = [json.loads(line) for line in file]
        named = set(re.findall(r"`(\w+)`", PAPER.partition("MIX_TRACE=FILE")[2].partition("\n\n")[0])) - {"MIX_TRACE"}
        for one in exchanges:
            self.assertLessEqual(set(one), named)
        address = bytes((20, 10, 168, 192))
        reply = next(bytes.fromhex(one["reply"]) for one in exchanges if address.hex() in one.get("reply", ""))
        row = reply[reply.index(address) - ARP_ROW["address"][0]:]

        def field(name):
            offset, width = ARP_ROW[name]
            return struct.unpack_from(FORMATS[width], row, offset)[0] if width in FORMATS else \
                row[offset:offset + int(width)]

        self.assertEqual(field("MAC address").hex(":"), entry["mac"])
        self.assertEqual(field("interface name").partition(b"\0")[0].decode(), entry["interface"])
        states = dict(re.findall(r"(\d) (\w+)", next(line for line in PAPER.splitlines() if "| state |" in line)))
        self.assertEqual(states["%d" % field("state")], entry["state"])
        self.assertEqual(field("age"), entry["age_s"])
        self.assertEqual((field("virtual router"), field("virtual system")), (1, 0))
        kinds = dict(re.findall(r"(\d) (\w+)", next(line for line in PAPER.splitlines() if "| kind | 0" in line)))
        self.assertEqual(kinds["%d" % field("kind")], entry["kind"])


if __name__ == "__main__":
    unittest.main()
