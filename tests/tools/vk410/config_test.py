# SPDX-License-Identifier: MIT
"""Flag, environment, configuration file, default: who wins, and what errors say."""
import os
import unittest

import program


class Configuration(program.Case):
    def origins(self, *arguments):
        """What `config --show` says: option to value and origin."""
        ran = self.run_program(*arguments)
        self.assertEqual((ran.returncode, ran.stderr), (0, ""))
        found = {}
        verb = None
        for line in ran.stdout.splitlines():
            if line.startswith("["):
                verb = line.strip("[]")
            elif " = " in line:
                setting, origin = line.rsplit(" # ", 1)
                key, value = setting.lstrip("# ").split(" = ", 1)
                found[verb, key] = (value.strip(), origin)
        return found

    def rate_of_monitor(self, **options):
        return self.origins("config", "--show", "monitor")["monitor", "rate"]

    def test_shows_every_option_of_every_verb_with_its_default(self):
        shown = self.origins("config", "--show")
        for verb in ("demo", "monitor", "inspect", "doctor", "record", "replay", "export", "check", "simulate"):
            self.assertTrue(any(each == verb for each, _ in shown), verb)
            for line in self.run_program(verb, "--help").stdout.splitlines():
                option = line.strip().split(" ")[0].split(",")[-1].split(":")[0]
                if option.startswith("--") and option != "--help":
                    self.assertIn((verb, option[2:]), shown)
        self.assertEqual(shown["monitor", "rate"], ("1", "default"))
        self.assertEqual(shown["monitor", "headless"], ("false", "default"))
        self.assertEqual(shown["monitor", "source"], ('""', "default"))
        self.assertEqual(shown["monitor", "scan-range"], ("[]", "default"))
        self.assertEqual(shown["doctor", "for"], ("3", "default"))
        self.assertEqual(shown["export", "what"], ('"levels"', "default"))

    def test_prefers_the_environment_to_the_file_and_the_file_to_the_default(self):
        self.assertEqual(self.rate_of_monitor(), ("1", "default"))
        self.environment["VK410_CONFIG"] = self.path("my.toml")
        self.write("my.toml", "# mine\n[monitor]\nrate = 2.5\n")
        self.assertEqual(self.rate_of_monitor(), ("2.5", self.path("my.toml") + ":3"))
        self.environment["VK410_MONITOR_RATE"] = "4"
        self.assertEqual(self.rate_of_monitor(), ("4", "VK410_MONITOR_RATE"))

    def test_is_taken_from_the_users_folder_and_from_the_named_file(self):
        os.mkdir(self.path("config"))
        self.write("config/vk410.toml", "[doctor]\nfor = 7\n")
        self.write("other.toml", "[doctor]\nfor = 8\n")
        self.assertEqual(
            self.origins("config", "--show")["doctor", "for"], ("7", self.path("config/vk410.toml") + ":2")
        )
        for arguments in (
            ("--config", "other.toml", "config", "--show"),
            ("config", "--show", "--config", "other.toml"),
            ("config", "--show", "--config=other.toml"),
        ):
            self.assertEqual(self.origins(*arguments)["doctor", "for"], ("8", "other.toml:2"))

    def datagrams_inspected(self, *arguments):
        ran = self.run_program("inspect", "sim:band", *arguments)
        self.assertEqual(ran.returncode, 0, ran.stderr)
        return int(ran.stdout.split()[1])

    def test_acts_on_a_verb_as_its_flags_do(self):
        self.write("my.toml", "[inspect]\ncount = 3\n[export]\nfor = 9999\n")
        file = ["--config", "my.toml"]
        self.assertEqual(self.datagrams_inspected(*file), 3)
        self.environment["VK410_INSPECT_COUNT"] = "4"
        self.assertEqual(self.datagrams_inspected(*file), 4)
        self.assertEqual(self.datagrams_inspected("--count", 5, *file), 5)

    def test_gives_positionals_flags_and_lists_too(self):
        self.write("df.bin", self.simulated("df", "--count", 8, "--seed", 1))
        self.write(
            "my.toml",
            '[monitor]\nsource = "df.bin"\nheadless = true\nstats = false\nrate = 0\n'
            'scan-range = ["1:145M-155M/12.5k", "2:430M-440M/25k"]\n',
        )
        ran = self.run_program("monitor", "--config", "my.toml")
        self.assertEqual(ran.returncode, 0, ran.stderr)
        self.assertRegex(ran.stdout, r"^datagrams +8\n")
        self.assertRegex(ran.stdout, r"map writes +8\n")
        self.environment.update(
            VK410_MONITOR_SOURCE="df.bin", VK410_MONITOR_HEADLESS="true", VK410_MONITOR_RATE="0",
            VK410_MONITOR_SCAN_RANGE="1:145M-155M/12.5k,2:430M-440M/25k",
        )
        ran = self.run_program("monitor")
        self.assertEqual(ran.returncode, 0, ran.stderr)
        self.assertRegex(ran.stdout, r"map writes +8\n")
        ran = self.run_program("monitor", "--scan-range", "7:145M-155M/12.5k")
        self.assertRegex(ran.stdout, r"map writes +0\n")

    def test_that_is_shown_is_a_configuration_file(self):
        self.write(
            "my.toml",
            '[monitor]\nsource = "a \\"b\\" \\\\ c.pcap"\nrate = 0.5\nheadless = true\nscan-range = ["1:1M-2M/1k", "2:3M-4M/1k"]\n',
        )
        first = self.origins("config", "--show", "--config", "my.toml")
        self.write("again.toml", self.run_program("config", "--show", "--config", "my.toml").stdout)
        again = self.origins("config", "--show", "--config", "again.toml")
        self.assertEqual({key: value for key, (value, _) in first.items()}, {key: value for key, (value, _) in again.items()})
        self.assertEqual(first["monitor", "source"][0], '"a \\"b\\" \\\\ c.pcap"')

    def test_that_is_wrong_is_told_with_file_and_line(self):
        cases = {
            "[monitor]\nrate = \n": "my.toml:2: expected TOML as 'vk410 config --show' prints it, found: ",
            "rate = 2\n": "my.toml:1: expected a table of a verb, for example [monitor], found 'rate' outside of any\n",
            "[dance]\nrate = 2\n": "my.toml: expected tables of verbs, found [dance]; 'vk410 --help' lists the verbs\n",
            "[monitor]\n\nspeed = 2\n": "my.toml:3: expected an option of monitor, found 'speed'; 'vk410 config --show "
            "monitor' lists them\n",
            "[monitor]\nrate = 2020-01-01\n": "my.toml:2: [monitor] rate: expected a text, a number, true, false, or a list "
            "of them, found something else\n",
            "[monitor]\nscan-range = [[1]]\n": "my.toml:2: [monitor] scan-range: expected a text, a number, true, false, or "
            "a list of them, found something else\n",
        }
        for content, said in cases.items():
            with self.subTest(content):
                self.write("my.toml", content)
                ran = self.run_program("monitor", "a.bin", "--config", "my.toml")
                self.assertEqual((ran.returncode, ran.stdout), (2, ""))
                self.assertTrue(ran.stderr.startswith("vk410: " + said), ran.stderr)
                self.assertEqual(ran.stderr.count("\n"), 1)
        ran = self.run_program("monitor", "a.bin", "--config", "no.toml")
        self.assertEqual(ran.returncode, 2)
        self.assertEqual(
            ran.stderr,
            "vk410: no.toml: expected a configuration file, found: No such file or directory; 'vk410 config --show' prints "
            "one\n",
        )
        ran = self.run_program("monitor", "a.bin", "--config", ".")
        self.assertEqual(ran.returncode, 2)
        self.assertEqual(ran.stderr, "vk410: .: expected a configuration file, found a folder; name a file in it\n")

    def test_values_that_are_wrong_are_told_with_their_place(self):
        self.write("my.toml", '[inspect]\nport = 70000\n\n[monitor]\nscan-range = "1:2"\n[export]\nformat = "xls"\n')
        cases = [
            (["inspect", "a.bin"], "vk410 inspect: my.toml:2: --port: expected a port from 1 to 65535, found '70000'; 'vk410 "
             "inspect --help' shows how\n"),
            (["monitor", "sim:band"], "vk410 monitor: my.toml:5: '1:2': expected JOB:START-STOP/STEP, for example "
             "1:145M-155M/12.5k; '-' is missing before the stop frequency\n"),
            (["export", "a.bin"], "vk410 export: my.toml:7: --format: expected one of csv, ndjson, npy, found 'xls'; 'vk410 "
             "export --help' shows how\n"),
        ]
        for arguments, said in cases:
            ran = self.run_program(*arguments, "--config", "my.toml")
            self.assertEqual((ran.returncode, ran.stdout, ran.stderr), (2, "", said))
        self.environment["VK410_INSPECT_PORT"] = "0"
        ran = self.run_program("inspect", "a.bin", "--config", "my.toml")
        self.assertIn("vk410 inspect: VK410_INSPECT_PORT: --port: expected a port from 1 to 65535, found '0'", ran.stderr)
        ran = self.run_program("inspect", "a.bin", "--port", "0", "--config", "my.toml")
        self.assertIn("vk410 inspect: --port: expected a port from 1 to 65535, found '0'", ran.stderr)

    def test_of_an_unknown_verb_says_so(self):
        ran = self.run_program("config", "--show", "dance")
        self.assertEqual(ran.returncode, 2)
        self.assertEqual(ran.stderr, "vk410 config: expected a verb, found 'dance'; 'vk410 --help' lists them\n")

    def test_of_the_unattended_monitor_is_valid(self):
        packaging = os.path.join(os.path.dirname(__file__), "../../../packaging")
        shown = self.origins("--config", packaging + "/vk410.toml", "config", "--show")
        self.assertTrue(shown["monitor", "source"][1].endswith("vk410.toml:6"), shown["monitor", "source"])


if __name__ == "__main__":
    unittest.main()
