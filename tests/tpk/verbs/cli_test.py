"""The command line: usage, exit codes, output, JSON, completions, the manual page."""
import os
import pty
import re
import shutil
import subprocess
import unittest

import kit
from support import SOURCE_ROOT, TPK, VERBS, ToolTest

EXAMPLE = SOURCE_ROOT / "examples" / "brook-ledger"


class Usage(ToolTest):
    def test_help_lists_every_verb_and_the_exit_codes(self):
        for arguments in (["--help"], ["help"], ["-h"]):
            run = self.tpk(*arguments, code=0)
            for verb in VERBS:
                self.assertRegex(run.out, rf"(?m)^  {verb} ")
            self.assertIn("Exit codes: 0 fine", run.out)
            self.assertEqual(run.err, "")

    def test_help_on_a_verb_is_what_the_verb_says_of_itself(self):
        for verb in VERBS:
            run = self.tpk("help", verb, code=0)
            self.assertIn(f"Usage: tpk {verb}", run.out)
            self.assertEqual(run.out.strip(), self.tpk(verb, "--help", code=0).out.strip())

    def test_help_checks_explains_every_code(self):
        run = self.tpk("help", "checks", code=0)
        self.assertRegex(run.out, r"(?m)^name-climbs +error +\S")
        self.assertRegex(run.out, r"(?m)^time-part +warning +\S")

    def test_version(self):
        self.assertRegex(self.tpk("--version", code=0).out, r"^tpk \d+\.\d+\.\d+\n$")

    def test_wrong_usage_ends_with_1_and_a_suggestion(self):
        for arguments, suggestion in (
            ([], "tpk --help"),
            (["pak"], 'did you mean "tpk pack"?'),
            (["zzzz"], "tpk --help lists the verbs"),
            (["pack", "--forc", "x", "-o", "y"], "did you mean --force?"),
            (["list"], "tpk help list"),
            (["list", "a", "b"], "tpk help list"),
            (["pack", "x"], "tpk help pack"),
            (["pack", "x", "-o", "y", "--level", "10"], "tpk help pack"),
            (["list", "x", "--color", "pink"], "tpk help list"),
            (["help", "pak"], 'did you mean "tpk help pack"?'),
            (["completion", "tcsh"], "tpk help completion"),
            (["list", ""], "tpk help list"),
            (["install", "x", "--to", ""], "tpk help install"),
            (["plan", "x", "--to="], "tpk help plan"),
            (["extract", "x", "-o", ""], "tpk help extract"),
            (["pack", "", "-o", "y"], "tpk help pack"),
            (["bundle", "--manifest", "x", "--target", "linux", "-o", ""], "tpk help bundle"),
            (["bundle", "--manifest", "", "--target", "linux", "-o", "x"], "tpk help bundle"),
            (["bundle", "--manifest", "x", "--target", "linux", "-o", "y", "--wizard", ""], "tpk help bundle"),
        ):
            run = self.tpk(*arguments, code=1)
            self.assertEqual(run.out, "", arguments)
            self.assertIn(suggestion, run.err, arguments)
            self.assertTrue(run.err.startswith("tpk: "), run.err)

    def test_wrong_usage_with_json_is_one_error_object(self):
        for arguments in (["pak"], ["list"], ["pack", "x", "--nonsense"]):
            (line,) = self.json(*arguments, code=1)
            self.assertEqual((line["type"], line["code"]), ("error", "usage"))

    def test_a_missing_kit_is_an_input_failure(self):
        for verb in ("list", "info", "verify", "extract", "install", "plan", "diff"):
            more = {
                "extract": ["-o", "x"],
                "install": ["--to", "x"],
                "plan": ["--to", "x"],
                "diff": ["nowhere"],
            }
            run = self.tpk(verb, "nowhere", *more.get(verb, []), code=3)
            self.assertIn("cannot read the kit nowhere: No such file or directory", run.err)

    def test_what_is_no_ordinary_file_is_no_kit(self):
        os.mkfifo(self.work / "pipe")
        for name in (".", "pipe"):
            self.assertIn("is not an ordinary file", self.tpk("list", name, code=3).err)

    def test_every_code_of_the_checks_is_seen_somewhere(self):
        """A golden kit or the tests of pack show each one."""
        tests = SOURCE_ROOT / "tests/tpk/verbs"
        shown = "".join(path.read_text() for path in (tests / "golden").glob("*.txt"))
        shown += (tests / "pack_test.py").read_text()
        for line in self.json("help", "checks")[:-1]:
            self.assertIn(line["code"], shown)


class OutputOfTheTool(ToolTest):
    def setUp(self):
        super().setUp()
        self.tpk("pack", EXAMPLE, "-o", "kit.tpk", code=0)

    def test_json_for_every_verb(self):
        self.write("plain/a/b.txt", "x")
        runs = (
            ["list", "kit.tpk"],
            ["info", "kit.tpk"],
            ["verify", "kit.tpk"],
            ["plan", "kit.tpk", "--to", "target"],
            ["install", "kit.tpk", "--to", "target", "-n"],
            ["install", "kit.tpk", "--to", "target"],
            ["verify", "kit.tpk", "--against", "target"],
            ["extract", "kit.tpk", "-o", "unpacked", "-n"],
            ["extract", "kit.tpk", "-o", "unpacked"],
            ["pack", "unpacked", "-o", "again.tpk", "-n"],
            ["pack", "unpacked", "-o", "again.tpk"],
            ["diff", "kit.tpk", "again.tpk"],
            ["init", "plain"],
            ["help"],
            ["help", "checks"],
            ["completion", "bash"],
            ["man"],
        )
        # That of a bundle has a test of its own: it needs a wizard.
        self.assertEqual({arguments[0] for arguments in runs}, set(VERBS) - {"bundle"})
        for arguments in runs:
            last = self.json(*arguments)[-1]
            self.assertEqual((last["type"], last["verb"]), ("result", arguments[0]))

    def test_quiet_leaves_the_result_and_nothing_else(self):
        self.assertEqual(self.tpk("verify", "-q", "kit.tpk", code=0).out, "")
        run = self.tpk("list", "-q", "kit.tpk", code=0)
        self.assertEqual(len(run.out.splitlines()), 57)
        self.assertEqual(self.tpk("install", "-q", "kit.tpk", "--to", "t", code=0).out, "")

    def test_colours_only_where_they_are_wanted(self):
        self.assertNotIn("\x1b", self.tpk("verify", "kit.tpk").out)
        self.assertIn("\x1b[32m", self.tpk("verify", "--color", "always", "kit.tpk").out)
        self.assertIn("\x1b[32m", self.on_terminal("verify", "kit.tpk"))
        self.assertNotIn("\x1b[3", self.on_terminal("verify", "--color", "never", "kit.tpk"))
        self.environment["NO_COLOR"] = "1"
        self.assertNotIn("\x1b[3", self.on_terminal("verify", "kit.tpk"))

    def on_terminal(self, *arguments):
        """What a run writes whose outputs are a terminal."""
        leader, follower = pty.openpty()
        process = subprocess.Popen(
            [TPK, *arguments], cwd=self.work, env={**self.environment, "TERM": "xterm"},
            stdin=follower, stdout=follower, stderr=follower,
        )
        os.close(follower)
        seen = b""
        while True:
            try:
                part = os.read(leader, 65536)
            except OSError:  # the terminal is gone with the process
                break
            if not part:
                break
            seen += part
        os.close(leader)
        self.assertEqual(process.wait(), 0, seen)
        return seen.decode()

    def test_progress_is_a_bar_on_a_terminal_and_taken_away_at_the_end(self):
        for index in range(40):
            self.write(f"big/d/{index}", os.urandom(500_000))
        seen = self.on_terminal("pack", "big", "-o", "big.tpk")
        self.assertRegex(seen, r"\rpacking \[[#-]+\] +\d+%  [\d.]+ [kMG]?B/s  \d+:\d\d left")
        self.assertRegex(seen, r"\r\x1b\[Kpacked 40 files")
        self.assertNotIn("\r\rpacking", self.on_terminal("pack", "-q", "big", "-o", "q.tpk"))
        self.assertNotIn("packing", self.on_terminal(
            "pack", "big", "-o", "n.tpk", "--progress", "never"))

    def test_progress_without_a_terminal_comes_only_when_asked_for_and_in_plain_lines(self):
        for index in range(20):
            self.write(f"big/d/{index}", os.urandom(50_000))
        self.assertEqual(self.tpk("pack", "big", "-o", "a.tpk", code=0).err, "")
        err = self.tpk("pack", "big", "-o", "b.tpk", "--progress", "always", code=0).err
        lines = err.splitlines()
        self.assertTrue(2 <= len(lines) <= 11, err)
        for line in lines:
            self.assertRegex(line, r"^packing +\d+%  [\d.]+ [kMG]?B/s  \d+:\d\d left$")

    def test_a_closed_standard_output_is_a_failure(self):
        reader, writer = os.pipe()
        os.close(reader)
        process = subprocess.Popen(
            [TPK, "list", "kit.tpk"], cwd=self.work, env=self.environment,
            stdout=writer, stderr=subprocess.PIPE,
        )
        os.close(writer)
        err = process.communicate()[1].decode()
        self.assertEqual(process.returncode, 3, err)
        self.assertIn("standard output", err)

    def test_a_full_standard_output_is_a_failure(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("no /dev/full")
        with open("/dev/full", "w") as full:
            for arguments in (["list", "kit.tpk"], ["--help"]):
                process = subprocess.run([TPK, *arguments], cwd=self.work, env=self.environment,
                                         stdout=full, stderr=subprocess.PIPE)
                self.assertEqual(process.returncode, 3, arguments)
                self.assertIn(b"cannot write to standard output: No space left", process.stderr, arguments)

    def test_any_locale_will_do(self):
        data = kit.write(kit.Kit([kit.Product("en", "Ручей")], [kit.File("д\\счёт.xml", b"x")]))
        self.write("ru.tpk", data)
        for locale in ("C", "POSIX", "xx_XX.UTF-8", "de_DE.ISO-8859-1", "C.UTF-8"):
            self.environment["LC_ALL"] = locale
            shutil.rmtree(self.work / "out", ignore_errors=True)
            self.assertIn("д/счёт.xml", self.tpk("list", "ru.tpk", code=0).out)
            self.tpk("install", "ru.tpk", "--to", "out", code=0)
            self.assertEqual((self.work / "out/д/счёт.xml").read_bytes(), b"x")


class Completions(ToolTest):
    def complete_in_bash(self, line):
        words = line.split(" ")
        script = (
            f"source <({TPK} completion bash)\n"
            f"COMP_WORDS=({' '.join(repr(word) for word in words)}) COMP_CWORD={len(words) - 1}\n"
            'compopt() { :; }\n_tpk\nprintf "%s\\n" "${COMPREPLY[@]}"\n'
        )
        out = subprocess.run(["bash", "-c", script], cwd=self.work, env=self.environment,
                             stdout=subprocess.PIPE, check=True).stdout
        return out.decode().split()

    def test_bash_completes_verbs_options_values_and_files(self):
        self.write("one.tpk")
        self.assertEqual(self.complete_in_bash("tpk ver"), ["verify"])
        self.assertEqual(sorted(self.complete_in_bash("tpk "))[2:], sorted(VERBS))
        self.assertEqual(self.complete_in_bash("tpk verify --ag"), ["--against"])
        self.assertIn("-o", self.complete_in_bash("tpk pack -"))
        self.assertEqual(self.complete_in_bash("tpk list --color a"), ["auto", "always"])
        self.assertEqual(self.complete_in_bash("tpk list o"), ["one.tpk"])
        self.assertEqual(self.complete_in_bash("tpk help pa"), ["pack"])
        self.assertEqual(self.complete_in_bash("tpk completion f"), ["fish"])

    def check_syntax(self, shell, *options):
        if shutil.which(shell) is None:
            self.skipTest(f"no {shell} here")
        path = self.write(f"script.{shell}", self.tpk("completion", shell, code=0).out)
        process = subprocess.run([shell, *options, "-n", path], env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((process.returncode, process.stdout), (0, b""))

    def test_bash_accepts_its_script(self):
        self.check_syntax("bash")

    def test_zsh_accepts_its_script(self):
        self.check_syntax("zsh")

    def test_fish_accepts_its_script(self):
        self.check_syntax("fish")

    def test_fish_completes_verbs_and_options(self):
        if shutil.which("fish") is None:
            self.skipTest("no fish here")
        self.write("tpk.fish", self.tpk("completion", "fish", code=0).out)
        for line, expected in (("tpk ver", "verify"), ("tpk verify --ag", "--against"),
                               ("tpk list --color al", "always")):
            out = subprocess.run(
                ["fish", "-c", f"source tpk.fish; complete -C '{line}'"], cwd=self.work,
                env=self.environment, stdout=subprocess.PIPE, check=True).stdout.decode()
            self.assertIn(expected, out.split())


class Manual(ToolTest):
    def test_it_tells_of_every_verb_and_every_option(self):
        page = self.tpk("man", code=0).out
        for verb in VERBS:
            self.assertIn(f'.SS "tpk {verb}', page)
            for option in re.findall(r"--[a-z-]+", self.tpk("help", verb).out):
                if option not in ("--help",):
                    self.assertIn(option.replace("-", r"\-"), page, verb)
        for section in ("EXIT STATUS", "MANIFEST", "CHECKS", "ENVIRONMENT", "EXAMPLES"):
            self.assertIn(f".SH {section}", page)

    def test_troff_has_nothing_to_complain_of(self):
        path = self.write("tpk.1", self.tpk("man", code=0).out)
        for command in (["groff", "-ww", "-man", "-Tutf8", path],
                        ["mandoc", "-T", "lint", "-W", "warning", path]):
            if shutil.which(command[0]) is None:
                continue
            process = subprocess.run(command, env=self.environment, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE)
            complaints = process.stderr.decode()
            if command[0] == "mandoc":
                complaints = process.stdout.decode()
            # The page has no date, so that it is the same whenever it is made.
            complaints = "".join(line for line in complaints.splitlines(True)
                                 if "missing date" not in line)
            self.assertEqual(complaints, "")


if __name__ == "__main__":
    unittest.main()
