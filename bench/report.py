#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs every benchmark and writes docs/performance.md: each figure beside its peers and its limit, from one run.

usage: bench/report.py BUILD_FOLDER OUTPUT
"""
import datetime
import json
import os
import platform
import re
import subprocess
import sys
import tempfile

build, output = sys.argv[1], sys.argv[2]
here = os.path.dirname(os.path.abspath(__file__))
root = os.path.dirname(here)
program = os.path.join(build, "tools/vk410/vk410")


def talk(text):
    print(text, file=sys.stderr, flush=True)


def command_output(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


# --- Running ---

def run_everything():
    """All results by program and name, and what programs print beside them."""
    results, printed = {}, {}
    with tempfile.TemporaryDirectory() as folder:
        path = os.path.join(folder, "results.json")
        for name in sorted(os.listdir(os.path.join(build, "bench"))):
            if name.endswith("_bench"):
                talk(f"== {name}")
                printed[name] = command_output(os.path.join(build, "bench", name), "--results=" + path)
                talk(printed[name])
        for script in (["numpy_bench.py"], ["files_bench.py", program, os.path.join(root, "tools/wireshark/vk410.lua")]):
            talk(f"== {script[0]}")
            with open(path, "a", encoding="utf-8") as file:
                subprocess.run([sys.executable, os.path.join(here, script[0]), *script[1:]], check=True, stdout=file)
        with open(path, encoding="utf-8") as file:
            for line in file:
                result = json.loads(line)
                results[result["program"], result["name"]] = result
    return results, printed


def viewers(count):
    """Share of a core of each thread of a demo with so many viewers, and the lowest rate of its session."""
    talk(f"== page_viewers.py with {count}")
    text = command_output(sys.executable, os.path.join(here, "page_viewers.py"), program, str(count), "12")
    shares = re.findall(r"^thread (\S.*): ([\d.]+) % of a core$", text, re.M)
    return shares, re.search(r"lowest ([\d.]+)", text)[1]


# --- Writing ---

def duration(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return f"{nanoseconds / size:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def table(heads, rows):
    lines = ["| " + " | ".join(heads) + " |", "|" + "---|" * len(heads)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]) + "\n"


class Report:
    def __init__(self, results):
        self.results = results

    def ns(self, program_name, name, by_clock=False):
        return self.results[program_name, name]["wall_ns" if by_clock else "ns"]

    def own(self, program_name, name):
        result = self.results[program_name, name]
        return f"{duration(result['ns'])} ± {100 * result['spread']:.0f} %"

    def peer(self, own, peer, by_clock=False):
        """A peer's time, and how many times ours it is."""
        return f"{duration(self.ns(*peer, by_clock))} ({self.ns(*peer, by_clock) / self.ns(*own, by_clock):.2f} x)"

    def ratio(self, own, peer, by_clock=False):
        return self.ns(*own, by_clock) / self.ns(*peer, by_clock)

    def budgets(self):
        b, df, ip, v = "byteorder_bench", "dfscan_bench", "ifpan_bench", "values_bench"
        sizes16 = (32, 700, 1601, 16000, 1000000)
        over_volk = max(self.ratio((b, f"ours{w}/{n}"), (b, f"volk{w}/{n}")) for w in (16, 32) for n in sizes16)
        under_naive = {w: min(1 / self.ratio((b, f"ours{w}/{n}"), (b, f"naive{w}/{n}")) for n in (700, 1601, 16000))
                       for w in (16, 32)}
        # The datagram's bytes come from elsewhere; the budget was set where the naive swap of 32 items takes 14 ns.
        panorama = {n: self.ns(ip, f"ifpan/{n}") - self.ns(ip, f"reception/{n}") for n in (1601, 16000)}
        more = 500 * self.ns(b, "naive16/32") / 14
        lines = [
            ("swap beside VOLK, worst of all sizes and widths", over_volk, "x", "<=", 1.2),
            ("16-bit swap beside a naive loop, 700 to 16,000 items", under_naive[16], "x", ">=", 8),
            ("32-bit swap beside a naive loop, 700 to 16,000 items", under_naive[32], "x", ">=", 8),
            ("16,000 levels into a map beside memcpy", self.ratio((v, "traceSetData/16000"), (v, "traceMemcpyOne/16000")), "x", "<=", 1.5),
            ("the same with a mirror map, beside two copies", self.ratio((v, "traceSetDataMirrored/16000"), (v, "traceMemcpyTwo/16000")), "x", "<=", 1.5),
            ("channel look-up among 10,000 ranges beside 100", self.ratio((v, "gridClosestChannel/10000"), (v, "gridClosestChannel/100")), "x", "<=", 2),
            ("panorama of 1,601 points beside its three passes", panorama[1601] - self.ns(ip, "threePasses/1601"), "ns more", "<=", round(more)),
            ("panorama of 16,000 points beside its three passes", panorama[16000] / self.ns(ip, "threePasses/16000"), "x", "<=", 1.4),
            ("DF samples, 16,000 channels, beside the plainest loop", self.ratio((df, "convert/16000"), (df, "plainLoop/16000")), "x", "<=", 0.6),
            ("the same beside memcpy of the samples", self.ratio((df, "convertBesideCopy/16000"), (df, "copy/16000")), "x", "<=", 4),
            ("1,000 blanked intervals in a block of 16,000 channels", self.ratio((df, "block/16000/1000"), (df, "block/16000/0")), "x", "<=", 1.1),
            ("blanked channels of 10,000 ranges beside 100", self.ratio((df, "rebuild/10000"), (df, "rebuild/100")), "x", "<=", 100),
        ]
        for size in (1500, 8192, 65536):
            lines.append((f"TCP datagrams of {size:,} bytes beside a plain recv loop, rate by the clock",
                          1 / self.ratio(("tcp_bench", f"tcpReader/{size}"), ("tcp_bench", f"plainLoop/{size}"), True), "x", ">=", 0.9))
        for size in (1400, 8192):
            lines.append((f"UDP datagrams of {size:,} bytes beside bare recvmmsg, rate",
                          1 / self.ratio(("udp_bench", f"udpSource/{size}/0"), ("udp_bench", f"recvmmsgLoop/{size}/0"), True), "x", ">=", 0.8))
        rows = []
        for what, figure, unit, relation, limit in lines:
            kept = figure <= limit if relation == "<=" else figure >= limit
            rows.append((what, f"{figure:.3g} {unit}", f"{'at most' if relation == '<=' else 'at least'} {limit} {unit}",
                         "yes" if kept else "**no**"))
        return table(("what", "measured", "budget", "kept"), rows) + (
            "\nThe budget in nanoseconds is 500 on a machine where the naive swap of 32 items takes 14 ns, as many times more here.\n")

    def swaps(self):
        rows = []
        for width in (16, 32):
            for count in (32, 700, 1601, 16000, 1000000):
                own = ("byteorder_bench", f"ours{width}/{count}")
                rows.append((f"{count:,} of {width} bits", self.own(*own),
                             *(self.peer(own, ("byteorder_bench", f"{peer}{width}/{count}")) for peer in ("memcpy", "volk", "qt", "naive")),
                             self.peer(own, ("numpy_bench.py", f"numpy{width}/{count}"))))
        return table(("items", "ours", "memcpy", "VOLK", "Qt bulk", "ntohs loop", "NumPy"), rows)

    def readers(self):
        rows = []
        for attributes, items in ((1, 32), (10, 32), (100, 32), (1000, 32), (1, 1601), (1, 16000)):
            own = ("reader_bench", f"ours/{attributes}/{items}")
            rows.append((f"{attributes:,} of {items:,} items", self.own(*own),
                         *(self.peer(own, ("reader_bench", f"{peer}/{attributes}/{items}")) for peer in ("copy", "qDataStream"))))
        return table(("attributes in a datagram", "ours", "copy of the bytes", "QDataStream"), rows)

    def sockets(self):
        rows = []
        for size in (1500, 8192, 65536):
            own, peer = ("tcp_bench", f"tcpReader/{size}"), ("tcp_bench", f"plainLoop/{size}")
            rows.append((f"TCP, {size:,} bytes", self.own(*own), self.peer(own, peer), f"{1 / self.ratio(own, peer, True):.2f} x", "recv loop that cuts and copies"))
        for size in (1400, 8192):
            own = ("udp_bench", f"udpSource/{size}/0")
            for name, label in ((f"recvmmsgLoop/{size}/0", "bare recvmmsg"), (f"qUdpSocket/{size}", "QUdpSocket")):
                rows.append((f"UDP, {size:,} bytes", self.own(*own), self.peer(own, ("udp_bench", name)),
                             f"{1 / self.ratio(own, ('udp_bench', name), True):.2f} x", label))
        for points in (1601, 16000):
            own, peer = ("tcp_bench", f"tcpToLevelMap/{points}"), ("tcp_bench", f"tcpToNothing/{points}")
            rows.append((f"TCP to level map, 4,000 traces of {points:,} points", self.own(*own), self.peer(own, peer),
                         f"{1 / self.ratio(own, peer, True):.2f} x", "reading of the same stream alone"))
        return table(("from the socket", "ours, a round", "peer", "our rate by the clock", "which peer"), rows)

    def files(self):
        own = ("files_bench.py", "inspect")
        rows = [(label, duration(self.ns("files_bench.py", name)), f"{self.ns('files_bench.py', name) / self.ns(*own):.2f} x")
                for name, label in (("read", "cat, to nowhere"), ("inspect", "vk410 inspect"), ("inspectJson", "vk410 inspect --json"),
                                    ("monitor", "vk410 monitor, to the level map"), ("tshark", "tshark with our dissector"))]
        return table(("a capture of 5,000 panoramas of 1,601 points", "a datagram", "beside inspect"), rows)

    def growth(self):
        rows = []
        for what, program_name, names in (
                ("attributes in a datagram (of 32 items)", "reader_bench", [(n, f"ours/{n}/32") for n in (1, 10, 100, 1000)]),
                ("items of an attribute", "reader_bench", [(n, f"ours/1/{n}") for n in (32, 1601, 16000)]),
                ("processors registered (100 attributes)", "reader_bench", [(n, f"processors/{n}") for n in (1, 10, 100, 1000)]),
                ("clients of the mirror (16 MiB of datagrams)", "mirror_bench", [(n, f"mirror/{n}") for n in (1, 4, 16, 64)]),
                ("the same, plain relay", "mirror_bench", [(n, f"plainRelay/{n}") for n in (1, 4, 16, 64)]),
                ("scan ranges (a block of 1,000 channels)", "dfscan_bench", [(n, f"blockAmongJobs/{n}") for n in (1, 10, 100, 1000)]),
                ("blanked intervals (a block of 16,000 channels)", "dfscan_bench", [(n, f"block/16000/{n}") for n in (0, 10, 100, 1000)]),
                ("ranges that blank (rebuilding)", "dfscan_bench", [(n, f"rebuild/{n}") for n in (100, 1000, 10000)]),
                ("ranges of a grid (channel of a frequency)", "values_bench", [(n, f"gridClosestChannel/{n}") for n in (1, 100, 10000)]),
                ("observers of a value", "values_bench", [(n, f"notifyObservers/{n}") for n in (1, 10, 1000)])):
            first = self.ns(program_name, names[0][1])
            rows.append((what, ", ".join(f"{n:,}" for n, _ in names), ", ".join(duration(self.ns(program_name, name)) for _, name in names),
                         ", ".join(f"{self.ns(program_name, name) / first:.3g}" for _, name in names)))
        return table(("of", "how many", "time", "times the first"), rows)


def viewer_table():
    rows = []
    for count in (1, 10, 50):
        shares, lowest = viewers(count)
        rows.append((count, ", ".join(f"{name} {share} %" for name, share in shares if float(share) >= 0.1), lowest))
    return table(("viewers (one never reads)", "share of a core, by thread", "lowest traces a second of the session"), rows)


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        model = re.search(r"model name\s*: (.*)", file.read())[1]
    compiler = command_output("c++", "--version").splitlines()[0]
    commit = command_output("git", "-C", root, "rev-parse", "--short", "HEAD").strip()
    return (f"{datetime.date.today()}, {model}, {os.cpu_count()} cores, Linux {platform.release()}, {compiler}, `-O3`, "
            f"version {open(os.path.join(root, 'VERSION'), encoding='utf-8').read().strip()} at {commit}, load {os.getloadavg()[0]:.1f} at the start")


def tail_of(printed, name):
    """What a benchmark prints below its table."""
    return "```text\n" + printed[name].split("\n\n", 1)[1].strip() + "\n```\n"


def main():
    where = machine()
    results, printed = run_everything()
    talk("== profile.py")
    profile = command_output(sys.executable, os.path.join(here, "profile.py"), build)
    report = Report(results)
    with open(os.path.join(here, "notes.md"), encoding="utf-8") as file:
        notes = file.read()
    sections = (
        ("# Performance", f"Made by `./run bench`: {where}.\n\n"
         "Times are medians of nine rounds in random order, ± half the distance of the quartiles; processor time of the thread that works, "
         "unless the clock is named. In brackets: how many times ours a peer takes. Each program first checks that its result is right. "
         "Loopback only; on a machine that does other work besides, ratios hold and absolute figures do not.\n"),
        ("## Budgets", report.budgets() + "\n" + notes),
        ("## Items to host order, in place", report.swaps()),
        ("## Datagrams to processors", report.readers()),
        ("## From the socket", report.sockets() + "\nUDP at a steady rate:\n\n" + tail_of(printed, "udp_bench")
         + "\nThe mirror at a steady rate:\n\n" + tail_of(printed, "mirror_bench")),
        ("## Whole files", report.files()),
        ("## Growth", report.growth()),
        ("## Viewers of the page", viewer_table()),
        ("## Where the time goes", profile),
    )
    with open(output, "w", encoding="utf-8") as file:
        file.write("\n".join(f"{head}\n\n{text}" for head, text in sections))
    talk(f"written: {output}")


main()
