# SPDX-License-Identifier: MIT
"""How often `vk410 monitor` says how it is: each second to a person, rarely to a journal."""
import signal
import unittest

import program


def status_lines(said):
    return [line for line in said.splitlines() if " traces/s | " in line]


class Monitor(program.Case):
    def test_says_each_second_how_it_is_on_a_terminal(self):
        said, code = self.on_a_terminal("monitor", "sim:band", "--headless", stop_after=5)
        self.assertEqual(code, 0)
        self.assertGreaterEqual(len(status_lines(said)), 3, said)

    def test_says_rarely_how_it_is_elsewhere(self):
        ran = self.run_program("monitor", "sim:band", "--headless", "--for", 5)
        self.assertEqual(ran.returncode, 0, ran.stderr)
        # One when it began; on a busy machine another one before the first data.
        self.assertIn(len(status_lines(ran.stderr)), (1, 2), ran.stderr)

    def test_says_at_once_elsewhere_that_data_stays_away(self):
        port = program.free_port()
        process = self.start("monitor", f"udp://127.0.0.1:{port}", "--headless")
        self.until_said(process, "no data yet")
        self.run_program("simulate", "band", "--udp", f"127.0.0.1:{port}", "--for", 2)
        self.until_said(process, "1601 ch")
        self.until_said(process, "silent for")
        process.send_signal(signal.SIGINT)
        self.assertEqual(process.wait(20), 0)


if __name__ == "__main__":
    unittest.main()
