#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Many viewers at one demo, one of which never reads: what that costs, second by second.

usage: page_viewers.py PROGRAM [VIEWERS] [SECONDS]     for example: bench/page_viewers.py build/release/tools/vk410/vk410 50 60
Fails when traces are lost in the session, or when its memory grows by more than 16 MiB after the first ten seconds.
"""
import base64, os, re, selectors, signal, socket, subprocess, sys, threading, time

program = sys.argv[1]
viewers = int(sys.argv[2]) if len(sys.argv) > 2 else 50
seconds = int(sys.argv[3]) if len(sys.argv) > 3 else 60


def connect(port):
    viewer = socket.create_connection(("127.0.0.1", port))
    key = base64.b64encode(os.urandom(16)).decode()
    viewer.sendall((f"GET /stream HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
                    f"Sec-WebSocket-Key: {key}\r\nSec-WebSocket-Version: 13\r\n\r\n").encode())
    return viewer


def memory_kib(process):
    with open(f"/proc/{process.pid}/status") as status:
        return int(re.search(r"VmRSS:\s+(\d+)", status.read())[1])


def thread_seconds(process):
    """CPU seconds of each thread, by name."""
    used = {}
    for thread in os.listdir(f"/proc/{process.pid}/task"):
        with open(f"/proc/{process.pid}/task/{thread}/stat") as stat:
            text = stat.read()
        name = text[text.index("(") + 1:text.rindex(")")]
        fields = text[text.rindex(")") + 2:].split()
        used[name] = used.get(name, 0) + (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
    return used


terminal, theirs = os.openpty()  # elsewhere it does not say each second how it is
process = subprocess.Popen([program, "demo", "--listen", "127.0.0.1:0"], stdout=subprocess.PIPE, stderr=theirs, text=True)
os.close(theirs)
lines = []


def read_lines():
    with open(terminal) as talk:
        try:
            lines.extend(talk)
        except OSError:  # the other end is gone
            pass


threading.Thread(target=read_lines, daemon=True).start()
while not any("monitor http" in line for line in lines):
    time.sleep(0.05)
port = int(re.search(r"http://127\.0\.0\.1:(\d+)", "".join(lines))[1])

stalled = connect(port)  # never reads
readers = [connect(port) for _ in range(viewers - 1)]
selector = selectors.DefaultSelector()
for reader in readers:
    selector.register(reader, selectors.EVENT_READ)
received = 0
memories = []
begin = time.time()
before = thread_seconds(process)
for second in range(1, seconds + 1):
    while time.time() < begin + second:
        for key, _ in selector.select(timeout=0.05):
            received += len(key.fileobj.recv(1 << 18))
    memories.append(memory_kib(process))
    print(f"{second:4} s  {memories[-1]:8} KiB  {received / second / 1e6:6.1f} MB/s to viewers  {lines[-1].strip()}", flush=True)
after = thread_seconds(process)
process.send_signal(signal.SIGINT)
report = process.communicate()[0]
for name in after:
    print(f"thread {name}: {100 * (after[name] - before.get(name, 0)) / seconds:.1f} % of a core")
print(report)
rates = [float(rate) for rate in re.findall(r"^([\d.]+) traces/s", "".join(lines), re.M)][2:]
print(f"traces/s: lowest {min(rates)}, mean {sum(rates) / len(rates):.1f}; memory: "
      f"{memories[min(9, len(memories) - 1)]} to {memories[-1]} KiB")
grown = memories[-1] - memories[min(9, len(memories) - 1)]
sys.exit(0 if process.returncode == 0 and grown < 16 * 1024 else 1)
