#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""A whole capture from the first byte to the last: what each reader of it needs a datagram.

usage: files_bench.py PROGRAM DISSECTOR >> FILE      DISSECTOR: tools/wireshark/vk410.lua
Prints one JSON object a line, as the C++ benchmarks write them with --results.
"""
import json
import os
import statistics
import struct
import subprocess
import sys
import tempfile
import time

program, dissector = sys.argv[1], sys.argv[2]
datagrams, items, rounds = 5_000, 1_601, 3


def panorama(number):
    header = struct.pack(">qqqq", 98_500_000, 0, 0, 0)  # any 50 bytes do: what is read is the walk
    header = struct.pack(">II", 98_500_000, 10_000_000) + header + bytes(10)
    levels = struct.pack(f">{items}h", *((number + i) % 1_000 - 500 for i in range(items)))
    body = struct.pack(">HHHBBI", 501, len(header) + len(levels) + 8, items, 0, len(header), 1) + header + levels
    return struct.pack(">IIHHI", 0x000C5A10, 0, number % 65_536, 0, 16 + len(body)) + body


def seconds(command):
    begin = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - begin


with tempfile.TemporaryDirectory() as folder:
    stream, capture = os.path.join(folder, "stream.bin"), os.path.join(folder, "capture.pcap")
    with open(stream, "wb") as file:
        for number in range(datagrams):
            file.write(panorama(number))
    subprocess.run([program, "record", stream, "-o", capture], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    found = subprocess.run([program, "inspect", "--json", capture], check=True, stdout=subprocess.PIPE, text=True).stdout
    assert found.count('"type":"attribute"') == datagrams, "every datagram in the capture"
    readers = {
        "read": ["cat", capture],
        "inspect": [program, "inspect", capture],
        "inspectJson": [program, "inspect", "--json", capture],
        "monitor": [program, "monitor", "--headless", "--rate", "0", capture],
        "tshark": ["tshark", "-r", capture, "-X", "lua_script:" + dissector],
    }
    for name, command in readers.items():
        samples = [seconds(command) * 1e9 / datagrams for _ in range(rounds)]
        median = statistics.median(samples)
        print(json.dumps({"program": "files_bench.py", "name": name, "ns": median, "wall_ns": median,
                          "spread": (max(samples) - min(samples)) / 2 / median,
                          "bytes": os.path.getsize(capture) / datagrams, "peer": "" if name == "inspect" else "inspect"}))
