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

    def test_that_is_broken_leaves_help_and_config_working(self):
        self.write("my.toml", "[monitor]\nrate = \n")
        self.environment["VK410_CONFIG"] = "my.toml"
        problem = "my.toml:2: expected TOML as 'vk410 config --show' prints it, found: "
        for arguments in (["--help"], ["--version"], ["monitor", "--help"], ["help", "monitor"]):
            ran = self.run_program(*arguments)
            self.assertEqual((ran.returncode, ran.stderr), (0, ""), arguments)
            self.assertNotEqual(ran.stdout, "")
        ran = self.run_program("config", "--show", "monitor")
        self.assertEqual(ran.returncode, 1)
        self.assertTrue(ran.stderr.startswith("vk410 config: " + problem), ran.stderr)
        self.assertIn("\n[monitor]\n", ran.stdout)
        # also where the options that the file should give are missing, and where a variable is wrong, too
        self.environment["VK410_MONITOR_HEADLESS"] = "maybe"
        for arguments in (["monitor"], ["check", "a.bin"]):
            ran = self.run_program(*arguments)
            self.assertEqual((ran.returncode, ran.stdout), (2, ""))
            self.assertTrue(ran.stderr.startswith("vk410: " + problem), ran.stderr)

    def test_shows_what_of_it_cannot_be_and_where_it_stands(self):
        self.write("my.toml", '[inspect]\nport = 70000\ncount = 3\n[monitor]\nheadless = "yes"\n')
        self.environment["VK410_DOCTOR_FOR"] = "soon"
        ran = self.run_program("config", "--show", "--config", "my.toml")
        self.assertEqual(ran.returncode, 1)
        for said in (
            "vk410 config: my.toml:5: [monitor] headless: expected true or false, found the text \"yes\"; 'vk410 config "
            "--show monitor' shows how it is written\n",
            "vk410 config: my.toml:2: [inspect] port: expected a port from 1 to 65535, found '70000'; the default is shown\n",
            "vk410 config: VK410_DOCTOR_FOR: [doctor] for: expected a number from 0.1 to 3600, found 'soon'; the default is "
            "shown\n",
        ):
            self.assertIn(said, ran.stderr)
        self.assertRegex(ran.stdout, r"\n# port = \"\" +# default\n")
        self.assertRegex(ran.stdout, r"\ncount = 3 +# my.toml:3\n")

    def test_with_an_empty_name_is_refused(self):
        for arguments in (["--config", "", "inspect", "sim:band"], ["inspect", "sim:band", "--config="]):
            ran = self.run_program(*arguments)
            self.assertEqual((ran.returncode, ran.stdout), (2, ""))
            self.assertEqual(
                ran.stderr,
                "vk410: --config: expected a configuration file, found an empty name; leave it out for the usual one\n",
            )

    def test_values_of_a_wrong_type_are_told_with_their_line(self):
        self.write("a.bin", self.simulated("band", "--count", 3))
        cases = {
            "[monitor]\nheadless = 5\n": "my.toml:2: [monitor] headless: expected true or false, found 5",
            '[monitor]\nheadless = "no"\n': 'my.toml:2: [monitor] headless: expected true or false, found the text "no"',
            "[monitor]\nrate = true\n": "my.toml:2: [monitor] rate: expected a value, found true",
            "[monitor]\nrate = [1, 2]\n": "my.toml:2: [monitor] rate: expected one value, found a list",
            "[monitor]\nrecord = 5\n": "my.toml:2: [monitor] record: expected a text in quotes, found 5",
            '[monitor]\nsource = ["a", "b"]\n': "my.toml:2: [monitor] source: expected a text in quotes, found a list",
            "[monitor]\nscan-range = false\n": "my.toml:2: [monitor] scan-range: expected a list of texts, found false",
        }
        for content, said in cases.items():
            with self.subTest(content):
                self.write("my.toml", content)
                ran = self.run_program("monitor", "a.bin", "--config", "my.toml")
                self.assertEqual((ran.returncode, ran.stdout), (2, ""))
                self.assertEqual(
                    ran.stderr, f"vk410: {said}; 'vk410 config --show monitor' shows how it is written\n"
                )

    def test_flags_of_the_environment_are_true_or_false(self):
        self.write("a.bin", self.simulated("band", "--count", 3))
        for word, shown in (("yes", "true"), ("ON", "true"), ("1", "true"), ("No", "false"), ("0", "false")):
            self.environment["VK410_INSPECT_JSON"] = word
            self.assertEqual(self.origins("config", "--show")["inspect", "json"], (shown, "VK410_INSPECT_JSON"))
            ran = self.run_program("inspect", "a.bin")
            self.assertEqual(ran.stdout.startswith("{"), shown == "true")
        self.environment["VK410_INSPECT_JSON"] = "maybe"
        ran = self.run_program("inspect", "a.bin")
        self.assertEqual((ran.returncode, ran.stdout), (2, ""))
        self.assertEqual(ran.stderr, "vk410: VK410_INSPECT_JSON: expected true or false, found 'maybe'\n")

    def test_that_is_shown_from_the_environment_can_be_read_back(self):
        self.environment.update(
            VK410_INSPECT_JSON="yes", VK410_MONITOR_RECORD="5", VK410_SIMULATE_SEED="007", VK410_EXPORT_SOURCE="x\x7fy"
        )
        first = self.origins("config", "--show")
        self.write("again.toml", self.run_program("config", "--show").stdout)
        for name in ("INSPECT_JSON", "MONITOR_RECORD", "SIMULATE_SEED", "EXPORT_SOURCE"):
            del self.environment["VK410_" + name]
        again = self.origins("config", "--show", "--config", "again.toml")
        self.assertEqual({key: value for key, (value, _) in first.items()}, {key: value for key, (value, _) in again.items()})
        self.assertEqual(again["inspect", "json"][0], "true")
        self.assertEqual(again["monitor", "record"][0], '"5"')

    def test_variables_that_are_no_options_are_told(self):
        self.environment.update(VK410_MONITOR_RAET="4", VK410_MONTIOR_RATE="4", VK410_DATA="/somewhere")
        ran = self.run_program("inspect", "sim:band", "--count", 2)
        self.assertEqual(ran.returncode, 0)
        self.assertEqual(
            sorted(ran.stderr.splitlines()),
            [f"vk410: VK410_{name}: expected VK410_VERB_OPTION, found neither such a verb nor such an option; ignored; 'vk410 "
             "config --show' lists them" for name in ("MONITOR_RAET", "MONTIOR_RATE")],
        )

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
