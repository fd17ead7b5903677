#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Where the reception thread spends its time, from TCP bytes to the level map: a table in Markdown.

usage: bench/profile.py BUILD_FOLDER        needs perf
"""
import collections
import os
import re
import subprocess
import sys
import tempfile

build = sys.argv[1]
# The first that matches; `symbol [library]`.
kinds = (
    ("kernel: socket, copy to the user, scheduling", r"\[kernel|\[k\]|\[unknown\]"),
    ("copies that the interface asks for (map, signal, datagram)", r"mem(cpy|move)"),
    ("conversion to host order", r"byteorder|swap16|swap32"),
    ("allocation", r"malloc|calloc|realloc|cfree|_int_free|operator (new|delete)|QArrayData::(de)?allocate|unlink_chunk|tcache"),
    ("Qt: signals, event loop", r"libQt5|libglib|QMetaObject|doActivate"),
    ("system library", r"\[libc|\[vdso|libstdc|libpthread|\[ld-"),
    ("cutting the stream", r"DatagramCutter|TcpReader|PeerWatch|MirrorClients"),
    ("walk and dispatch", r"UdpDatagram|VK410Processor|wire::|DataPointers"),
    ("panorama, filler, map", r"MdpIfpan|LevelMapFiller|values::|FastValueMap|ChannelRange|Observable|Value"),
    ("session and ledger", r"receiver::|ledger::|recording::|Sequence"),
)



def place_of(line):
    """Where a sample of the reception thread lies; None for those of the thread that sends."""
    match = re.match(r"\s*(\d+)/(\d+)\s+[0-9a-f]+\s+(.*) \((.*)\)$", line)
    if not match or match[1] != match[2]:
        return None
    return "[kernel]" if "kernel" in match[4] or match[4].startswith("[guest") else f"{match[3]} [{os.path.basename(match[4])}]"


def shares(points):
    """Percent of the time by kind."""
    with tempfile.TemporaryDirectory() as folder:
        data = os.path.join(folder, "perf.data")
        recorded = subprocess.run(["perf", "record", "-q", "-e", "cpu-clock", "-F", "1999", "-o", data, os.path.join(build, "bench/tcp_bench"),
                                   f"--benchmark_filter=tcpToLevelMap/{points}$", "--benchmark_min_time=1"],
                                  check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if recorded.returncode != 0:
            sys.exit("profile.py: perf record failed; run as root, or set kernel.perf_event_paranoid to 1")
        samples = subprocess.run(["perf", "script", "-i", data, "-F", "pid,tid,ip,sym,dso"], check=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, text=True).stdout
    places = [place for place in map(place_of, samples.splitlines()) if place]
    if len(places) < 1000:
        sys.exit(f"profile.py: only {len(places)} samples of the reception thread; perf does not work here")
    found = (next((name for name, pattern in kinds if re.search(pattern, place)), "other") for place in places)
    return {kind: 100 * count / len(places) for kind, count in collections.Counter(found).items()}


small, large = shares(1601), shares(16000)
print("The reception thread of `tcp_bench`, from TCP bytes to the level map, looked at every half millisecond (`bench/profile.py`), in panoramas of "
      "1,601 and of 16,000 points:\n")
print("| of the time | 1,601 | 16,000 |\n|---|---|---|")
for kind in sorted(small, key=small.get, reverse=True):
    print(f"| {kind} | {small[kind]:.1f} % | {large.get(kind, 0):.1f} % |")
work = [name for name, _ in kinds[:3]]
print(f"| **kernel and unavoidable passes together** | {sum(small.get(kind, 0) for kind in work):.1f} % | {sum(large.get(kind, 0) for kind in work):.1f} % |")
