# SPDX-License-Identifier: MIT
"""Runs the program as a user does, and gives it streams of a simulated receiver."""
import json
import os
import pty
import select
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest

DATAGRAM_HEADER = 16
LENGTH_AT = 12
SEQUENCE_AT = 8
PANORAMA_LEVELS_AT = 16 + 12 + 50  # behind the headers of datagram and attribute, and the optional header


def free_port():
    """A port of loopback that nobody has, for UDP and TCP."""
    while True:
        with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as tcp:
            tcp.bind(("127.0.0.1", 0))
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
                try:
                    udp.bind(tcp.getsockname())
                except OSError:
                    continue
                return tcp.getsockname()[1]


def datagrams_of(stream):
    found = []
    while stream:
        size = int.from_bytes(stream[LENGTH_AT : LENGTH_AT + 4], "big")
        found.append(stream[:size])
        stream = stream[size:]
    return found


def renumbered(datagrams):
    """The same datagrams with running sequence numbers, as of one receiver."""
    return [
        each[:SEQUENCE_AT] + (number & 0xFFFF).to_bytes(2, "big") + each[SEQUENCE_AT + 2 :]
        for number, each in enumerate(datagrams)
    ]


class Case(unittest.TestCase):
    """A folder of its own in which commands run."""

    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.folder = self._folder.name
        self.environment = dict(os.environ, XDG_CONFIG_HOME=self.folder + "/config", HOME=self.folder)

    def tearDown(self):
        self._folder.cleanup()

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, content):
        with open(self.path(name), "wb" if isinstance(content, bytes) else "w") as file:
            file.write(content)

    def read(self, name):
        with open(self.path(name)) as file:
            return file.read()

    def run_program(self, *arguments, **options):
        return subprocess.run(
            ["vk410", *map(str, arguments)],
            cwd=self.folder,
            env=self.environment,
            capture_output=True,
            text=True,
            timeout=120,
            **options,
        )

    def start(self, *arguments, **options):
        """A program that runs beside the test and ends with it."""
        process = subprocess.Popen(
            ["vk410", *map(str, arguments)],
            cwd=self.folder,
            env=self.environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            text=True,
            **options,
        )
        self.addCleanup(self._stop, process)
        return process

    @staticmethod
    def _stop(process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def until_said(self, process, text):
        """Reads stderr up to the line with that text."""
        for line in process.stderr:
            if text in line:
                return line
        raise AssertionError(f"never said: {text}")

    def simulated(self, *arguments, truth=None):
        """The bytes that a simulated receiver sends over TCP."""
        port = free_port()
        more = ["--truth", truth] if truth else []
        process = self.start("simulate", *arguments, "--tcp", f"127.0.0.1:{port}", "--rate", 0, *more)
        self.until_said(process, "waiting for a client")
        stream = b""
        with socket.create_connection(("127.0.0.1", port)) as client:
            while part := client.recv(1 << 20):
                stream += part
        process.wait(30)
        return stream

    def objects(self, text):
        return [json.loads(line) for line in text.splitlines()]

    def send_until_done(self, datagrams, port, process, seconds=20):
        """Sends datagrams again and again until the process has ended; gives what it printed and its code."""
        sender = threading.Thread(target=self._send_until_done, args=(datagrams, port, process, seconds))
        sender.start()
        out, err = process.communicate(timeout=2 * seconds)
        sender.join()
        return out, err, process.returncode

    @staticmethod
    def _send_until_done(datagrams, port, process, seconds):
        end = time.monotonic() + seconds
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sender:
            sequence = 0
            while process.poll() is None and time.monotonic() < end:
                for each in datagrams:
                    numbered = each[:SEQUENCE_AT] + (sequence & 0xFFFF).to_bytes(2, "big") + each[SEQUENCE_AT + 2 :]
                    sequence += 1
                    try:
                        sender.sendto(numbered, ("127.0.0.1", port))
                    except ConnectionRefusedError:
                        pass  # it does not listen yet
                select.select([], [], [], 0.01)

    def on_a_terminal(self, *arguments, stop_after=None):
        """What the program says on stderr when that is a terminal, and its exit code."""
        master, slave = pty.openpty()
        process = subprocess.Popen(
            ["vk410", *map(str, arguments)],
            cwd=self.folder,
            env=self.environment,
            stdout=subprocess.DEVNULL,
            stderr=slave,
        )
        os.close(slave)
        said = b""
        begin = time.monotonic()
        while True:
            if stop_after and time.monotonic() - begin > stop_after and process.poll() is None:
                process.send_signal(signal.SIGINT)
                stop_after = None
            if select.select([master], [], [], 0.05)[0]:
                try:
                    part = os.read(master, 65536)
                except OSError:  # nobody has the other end any more
                    break
                if not part:
                    break
                said += part
            elif process.poll() is not None:
                break
        os.close(master)
        return said.decode(), process.wait(30)
