# SPDX-License-Identifier: MIT
"""What tshark with the dissector, and `vk410 inspect --json`, read in a capture: both as the JSON has it."""
import json
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as xml
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
DISSECTOR = ROOT / "tools" / "wireshark" / "vk410.lua"
PROGRAM = os.environ.get("VK410_PROGRAM", str(ROOT / "build" / "dev" / "tools" / "vk410" / "vk410"))
TIMEOUT_S = 120


def require_tools():
    if not shutil.which("tshark"):
        sys.exit("tshark is missing: install Debian's package tshark (apt-get install tshark)")
    if not Path(PROGRAM).is_file():
        sys.exit(f"no program at {PROGRAM}: build vk410, or say where it is in VK410_PROGRAM")


def run_tshark(*arguments):
    """Output of tshark with the dissector and nobody's personal settings."""
    with_dissector = ["tshark", "-X", f"lua_script:{DISSECTOR}", "-n", *map(str, arguments)]
    with tempfile.TemporaryDirectory() as home:
        environment = dict(os.environ, HOME=home, XDG_CONFIG_HOME=home, LC_ALL="C.UTF-8")
        ran = subprocess.run(
            with_dissector, capture_output=True, timeout=TIMEOUT_S, env=environment, check=False
        )
    words = ran.stderr.decode()
    if ran.returncode != 0 or "Lua" in words:
        raise AssertionError(f"tshark ended with {ran.returncode}: {words}")
    return ran.stdout.decode()


def inspect(path, *arguments):
    """The objects of `inspect --json`, a datagram each with what belongs to it."""
    ran = subprocess.run(
        [PROGRAM, "inspect", str(path), "--json", *map(str, arguments)],
        capture_output=True,
        timeout=TIMEOUT_S,
        check=False,
    )
    if ran.returncode not in (0, 1):
        raise AssertionError(f"inspect ended with {ran.returncode}: {ran.stderr.decode()}")
    datagrams = []
    for line in ran.stdout.splitlines():
        found = json.loads(line)
        kind = found.pop("type")
        if kind == "datagram":
            del found["index"], found["offset"]
            datagrams.append(dict(found, content=[]))
        else:
            del found["datagram"]
            datagrams[-1]["content"].append(dict(found, type=kind))
    return datagrams


# --- PDML


def shown(node, name):
    """What the field `name` right below `node` shows; None where there is none."""
    found = node.find(f"field[@name='{name}']")
    return None if found is None else found.get("show")


def number(node, name):
    text = shown(node, name)
    return None if text is None else int(text, 0)


def truth(text):
    return text in ("1", "True")


def notes(node):
    """Expert notes right at `node`: name and message."""
    found = []
    for note in node.findall("field[@name='_ws.expert']"):
        names = [field.get("name") for field in note if field.get("name").startswith("vk410.")]
        found.append((names[0], shown(note, "_ws.expert.message")))
    return found


DROPPED = ("vk410.truncated", "vk410.unknownSelector", "vk410.tooManySelectors", "vk410.notWalked")


def error_of(node, attribute):
    """The error that an "unread" field tells about."""
    for name, message in notes(node):
        if name in DROPPED:
            reason, detail = message.split(": ", 1)
            return {"type": "error", "attribute": attribute, "reason": reason, "detail": detail}
    raise AssertionError("unread bytes without a reason")


def raw_bytes(field):
    return field.get("show", "").replace(":", "")


def array_of(branch):
    """The items of an array; the first ones stand in its own line, too."""
    items = [int(item.get("show")) for item in branch]
    line = branch.get("showname").split(" bits: ", 1)[1]
    if not line.startswith(", ".join(map(str, items[:8]))):
        raise AssertionError(f"the line of {items} says {line}")
    return items


def fields_of(node):
    found = {}
    for branch in node.findall("field[@name='vk410.array']"):
        found["selBit" + branch.get("show")] = array_of(branch)
    for field in node.findall("field[@name='vk410.selBit0.bytes']"):
        found["selBit0"] = raw_bytes(field)
    return found


def opt_numbers(header):
    """Names and texts of the numbers that an optional header shows."""
    names = [(field.get("name"), field.get("show")) for field in header]
    return [
        (name.removeprefix("vk410."), text)
        for name, text in names
        if name not in ("vk410.uninterpreted", "vk410.ifpan.centreFrequency")
    ]


def whole_numbers(table, shown_numbers):
    """Of the numbers of an optional header those that the JSON names."""
    whole = {f"{table}.{name}" for name, kind, _ in OPT_HEADERS[table] if kind.startswith("Signed")}
    return {name.removeprefix(table + "."): int(text) for name, text in shown_numbers if name in whole}


def attribute_of(node):
    header = node.find("field[@name='vk410.optHeader']")
    bits = node.find("field[@name='vk410.selectors']")
    found = {
        "type": "attribute",
        "index": int(node.get("show")),
        "offset": number(node, "vk410.offset"),
        "tag": number(node, "vk410.tag"),
        "known": truth(shown(node, "vk410.known")),
        "channel": number(node, "vk410.channel"),
        "count": number(node, "vk410.items"),
        "selectors": number(node, "vk410.selectors"),
        "fields": fields_of(node),
        "dataEnd": number(node, "vk410.dataEnd"),
        "bits": {bit.get("name").removeprefix("vk410.selectors.") for bit in bits if truth(bit.get("show"))},
    }
    if header is not None:
        found["optHeader"] = raw_bytes(header)
        found["optNumbers"] = opt_numbers(header)
    if found["tag"] == 5301 and whole_numbers("dfscan", found.get("optNumbers", [])):
        found["optHeaderFields"] = whole_numbers("dfscan", found["optNumbers"])
    return found


def content_of(proto):
    content, attributes = [], 0
    for node in proto:
        if node.get("name") == "vk410.attribute":
            unread = node.find("field[@name='vk410.unread']")
            content.append(attribute_of(node) if unread is None else error_of(unread, attributes))
            attributes += 1
        elif node.get("name") == "vk410.unread":
            content.append(error_of(node, attributes))
    return content


def address(packet, side):
    v6 = packet.find(f"proto[@name='ipv6']/field[@name='ipv6.{side}']")
    if v6 is not None:
        return f"[{v6.get('show')}]"
    return packet.find(f"proto[@name='ip']/field[@name='ip.{side}']").get("show")


def source_of(packet):
    transport = "udp" if packet.find("proto[@name='udp']") is not None else "tcp"
    layer = packet.find(f"proto[@name='{transport}']")
    ends = [f"{address(packet, side)}:{shown(layer, f'{transport}.{side}port')}" for side in ("src", "dst")]
    return f"{transport} {ends[0]} > {ends[1]}"


def received_of(packet):
    stamp = packet.find("proto[@name='geninfo']/field[@name='timestamp']").get("value")
    seconds, rest = stamp.split(".")
    return int(seconds) * 10**9 + int(rest)


def is_datagram(proto):
    return proto.get("name") == "vk410" and not any(field.get("name") == "vk410.skipped" for field in proto)


def dissect(path, *arguments):
    """Datagrams as the dissector shows them, and all its expert notes."""
    text = run_tshark("-r", path, "-T", "pdml", "-o", "vk410.max_items:100000", *arguments)
    datagrams, told = [], []
    for packet in xml.fromstring(text).findall("packet"):
        for proto in packet.findall("proto[@name='vk410']"):
            told += [note for node in proto.iter() for note in notes(node)]
            if is_datagram(proto):
                datagrams.append(
                    {
                        "size": int(proto.get("size")),
                        "sequence": number(proto, "vk410.sequence"),
                        "valid": "vk410.badMagic" not in dict(notes(proto)),
                        "received": received_of(packet),
                        "source": source_of(packet),
                        "content": content_of(proto),
                    }
                )
    return datagrams, told


# --- What the JSON says only in numbers: names of selector bits and of the numbers in optional headers

FORMATS = {"Signed8": "b", "Signed16": "h", "Signed32": "i", "Signed64": "q", "Float32": "f", "Bytes8": "8s"}
OPT_HEADER_OF_TAG = {301: "opt301", 501: "ifpan", 1801: "zerospan", 5301: "dfscan"}


def opt_header_tables():
    """Names, kinds and offsets, from the one place where they stand."""
    text = (ROOT / "wire" / "optheader.h").read_text()
    tables = {}
    inner = "|".join(OPT_HEADER_OF_TAG.values())
    for name, body in re.findall(rf"^namespace ({inner}) \{{\n(.*?)^\}} // namespace \1$", text, re.S | re.M):
        rows = re.findall(r'\{"(\w+)",\s*(\w+),\s*(\d+)\}', body)
        tables[name] = [(field, kind, int(offset)) for field, kind, offset in rows]
    return tables


OPT_HEADERS = opt_header_tables()


def expected_opt_numbers(tag, header, is_little):
    """`header` as the reader leaves it: that of tag 301 is in host order already."""
    name = OPT_HEADER_OF_TAG.get(tag)
    order = "<" if is_little or tag == 301 else ">"
    expected = []
    for field, kind, offset in OPT_HEADERS.get(name, []):
        size = struct.calcsize(order + FORMATS[kind])
        if offset + size > len(header):
            break
        value = struct.unpack_from(order + FORMATS[kind], header, offset)[0]
        expected.append((f"{name}.{field}", value))
    return expected


def expected_bits(selectors):
    bits = [bit for bit in range(32) if selectors >> bit & 1]
    return {f"selBit{bit}" if bit < 24 and bit != 22 else f"bit{bit}" for bit in bits}


def with_names(attribute):
    """An attribute of the JSON, with the names that the dissector shows."""
    named = dict(attribute, bits=expected_bits(attribute["selectors"]))
    if "optHeader" in attribute:
        is_little = bool(attribute["selectors"] & 1 << 29)
        named["optNumbers"] = expected_opt_numbers(
            attribute["tag"], bytes.fromhex(attribute["optHeader"]), is_little
        )
    return named


def same_number(text, value):
    if isinstance(value, bytes):
        return text.replace(":", "") == value.hex()
    if isinstance(value, float):
        # The shortest text for a number that is none differs between the two languages.
        return (
            value != value
            and "nan" in text.lower()
            or float(text) == value
            or abs(float(text) - value) <= 1e-5 * abs(value)
        )
    return int(text) == value
