"""The scripts of the development: which tests run twice, the packages, and what the check of the style finds."""
import os
import re
import shutil
import subprocess
import unittest

from support import SOURCE_ROOT, ToolTest

# Fails the first time it is run.
FAILS_ONCE = "test -e {0} || {{ touch {0}; exit 1; }}"


class RunTests(ToolTest):
    """script/run-tests on a build that consists of tests only."""

    def add(self, name, command, **properties):
        with open(self.work / "CTestTestfile.cmake", "a") as file:
            file.write(f"add_test([=[{name}]=] sh -c [=[{command}]=])\n")
            for key, value in properties.items():
                file.write(f"set_tests_properties([=[{name}]=] PROPERTIES {key} [=[{value}]=])\n")

    def run_tests(self, *arguments):
        process = subprocess.run([SOURCE_ROOT / "script/run-tests", self.work, *arguments], env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=100)
        return process.returncode, process.stdout.decode()

    def test_without_a_failure_the_closing_lines_are_those_of_ctest(self):
        self.add("engine", "true")
        self.add("desk", "true", LABELS="desktop")
        status, out = self.run_tests()
        self.assertEqual(status, 0)
        self.assertIn("100% tests passed, 0 tests failed out of 2\n", out)
        self.assertNotIn("second time", out)

    def test_what_needs_a_desktop_may_fail_once_and_is_named(self):
        name = 'Every/Desk.Holds/("x", "y")'
        self.add(name, FAILS_ONCE.format(self.work / "flag"), LABELS="gui;desktop")
        self.add("engine", "true")
        self.add("away", "exit 77", SKIP_RETURN_CODE=77)
        status, out = self.run_tests()
        self.assertEqual(status, 0, out)
        self.assertTrue(out.endswith(f"\nHeld the second time only:\n{name}\n\n2 passed, 0 failed, 1 skipped\n"), out)

    def test_everything_else_may_not(self):
        self.add("engine", FAILS_ONCE.format(self.work / "engine-flag"))
        self.add("drawn", FAILS_ONCE.format(self.work / "drawn-flag"), LABELS="gui")
        self.add("desk", FAILS_ONCE.format(self.work / "desk-flag"), LABELS="desktop")
        status, out = self.run_tests("-j1")
        self.assertEqual(status, 1, out)
        self.assertIn("\nHeld the second time only:\ndesk\n", out)
        failed = out.split("\nFailed:\n")[1]
        self.assertEqual(set(failed.splitlines()), {"engine", "drawn", "", "1 passed, 2 failed, 0 skipped"})

    def test_what_fails_twice_has_failed(self):
        self.add("desk", "false", LABELS="desktop")
        self.add("desk2", FAILS_ONCE.format(self.work / "flag"), LABELS="desktop")
        status, out = self.run_tests()
        self.assertEqual(status, 1, out)
        self.assertTrue(out.endswith("\nHeld the second time only:\ndesk2\n\nFailed:\ndesk\n\n"
                                     "1 passed, 1 failed, 0 skipped\n"), out)

    def test_the_arguments_are_those_of_ctest(self):
        self.add("engine", "false")
        self.add("desk", "true", LABELS="desktop")
        self.assertEqual(self.run_tests("-L", "desktop")[0], 0)


class Bootstrap(ToolTest):
    """The names of packages in script/bootstrap."""

    SYSTEMS = ("debian", "fedora", "arch", "opensuse", "homebrew")

    def bootstrap(self, *arguments):
        process = subprocess.run([SOURCE_ROOT / "script/bootstrap", *arguments], env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=100)
        return process.returncode, process.stdout.decode().splitlines(), process.stderr.decode()

    def table(self):
        text = (SOURCE_ROOT / "script/bootstrap").read_text().split("<<'END'\n")[1].split("\nEND\n")[0]
        head, *rows = [line.split() for line in text.splitlines() if not line.startswith("# ") or "debian" in line]
        self.assertEqual(head, ["#", "purpose", *self.SYSTEMS])
        return rows

    def test_each_row_has_a_name_or_none_for_every_system(self):
        for row in self.table():
            with self.subTest(row):
                self.assertEqual(len(row), 1 + len(self.SYSTEMS))
                for name in row[1:]:
                    self.assertRegex(name, r"^(-|[A-Za-z0-9][A-Za-z0-9.+_|-]*)$")

    def test_every_purpose_that_a_script_asks_for_is_in_the_table(self):
        asked = set()
        for script in [*(SOURCE_ROOT / "script").iterdir(), SOURCE_ROOT / ".ci/run"]:
            asked |= set(re.findall(r"(?m)^ *script/bootstrap --(\w+)$", script.read_text()))
        self.assertGreater(len(asked), 4)
        self.assertEqual(asked | {"build"}, {row[0] for row in self.table()})

    def test_a_list_has_what_is_wanted_once(self):
        for column, system in enumerate(self.SYSTEMS, 1):
            names = [row[column] for row in self.table() if row[0] in ("build", "test") and row[column] != "-"]
            if system == "debian":  # Which has alternatives, see below.
                continue
            self.assertEqual(self.bootstrap("--list", "--test", "--system", system)[:2],
                             (0, list(dict.fromkeys(names))))

    def test_of_alternatives_the_first_that_is_offered_is_listed(self):
        tools = self.work / "tools"
        tools.mkdir()
        (tools / "apt-cache").write_text("#!/bin/sh\n"
                                         "[ $1 = pkgnames ] && printf '%s\\n' 7zip g++ zip || [ $2 = gnustep-back ]\n")
        (tools / "apt-cache").chmod(0o755)
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        listed = self.bootstrap("--list", "--test", "--system", "debian")[1]
        self.assertEqual(listed, ["g++", "zip", "7zip", "gnustep-back"])

    def test_another_system_is_told_what_is_missing(self):
        tools = self.work / "tools"
        tools.mkdir()
        (tools / "rpm").write_text("#!/bin/sh\n[ $4 != gtest ] && [ $4 != fmt-devel ]\n")
        (tools / "rpm").chmod(0o755)
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        status, told, _ = self.bootstrap("--system", "opensuse")
        self.assertEqual((status, told[-1].split()), (1, ["sudo", "zypper", "install", "fmt-devel", "gtest"]))
        (tools / "rpm").write_text("#!/bin/sh\n")
        self.assertEqual(self.bootstrap("--system", "opensuse")[:2], (0, []))

    def test_what_is_not_known_is_refused(self):
        self.assertEqual(self.bootstrap("--nonsense")[0], 2)
        self.assertEqual(self.bootstrap("--system", "nowhere")[:2], (0, []))


TOOLS = ("clang-format", "shellcheck", "pyflakes3")


@unittest.skipUnless(all(shutil.which(tool) for tool in TOOLS), f"not all of {TOOLS} are here")
class Lint(ToolTest):
    """script/lint on a small tree; clang-tidy aside, which needs a build."""

    def setUp(self):
        super().setUp()
        (self.work / "script").mkdir()
        shutil.copy(SOURCE_ROOT / "script/lint", self.work / "script/lint")
        shutil.copy(SOURCE_ROOT / ".clang-format", self.work)
        self.write("script/bootstrap", "#!/bin/sh\n", 0o755)
        self.write("sound.cc", "int main() {}\n")
        self.write("sound.mm", "@interface Sound\n@end\n")
        self.write("sound.py", "print(1)\n")

    def write(self, name, text, mode=0o644):
        (self.work / name).parent.mkdir(exist_ok=True)
        (self.work / name).write_text(text)
        (self.work / name).chmod(mode)

    def lint(self):
        process = subprocess.run(["script/lint", "--quick"], cwd=self.work, env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=100)
        return process.returncode, process.stdout.decode()

    def has_version_14(self):
        return b"version 14." in subprocess.run(["clang-format", "--version"], stdout=subprocess.PIPE).stdout

    def test_a_sound_tree_passes(self):
        self.assertEqual(self.lint()[0], 0, self.lint()[1])

    def test_each_kind_of_file_is_looked_at(self):
        for name, text in {
            "layout.cc": "int  main ( ) { }\n",
            "layout.h": "int  x ;\n",
            "layout.mm": "@interface   Sound\n@end\n",
            "run.sh": "#!/bin/sh\necho $1\n",
            "script/run": "#!/usr/bin/env bash\necho $1\n",
            ".ci/run": "#!/bin/sh\necho $1\n",
            "unused.py": "import os\n",
            "script/unused": "#!/usr/bin/env python3\nimport os\n",
        }.items():
            if name.startswith("layout") and not self.has_version_14():
                continue
            with self.subTest(name):
                self.write(name, text)
                status, out = self.lint()
                self.assertEqual(status, 1, out)
                self.assertIn(name, out)
                os.remove(self.work / name)

    def test_what_a_build_makes_is_left_alone(self):
        for made in ("build", "dist"):
            self.write(f"{made}/unused.py", "import os\n")
        self.assertEqual(self.lint()[0], 0)

    def test_another_version_of_clang_says_so_and_leaves_the_layout(self):
        self.write("layout.cc", "int  main ( ) { }\n")
        self.write("tools/clang-format", "#!/bin/sh\necho clang-format version 19.1.0\n", 0o755)
        self.environment["PATH"] = f"{self.work}/tools:{os.environ['PATH']}"
        if shutil.which("clang-format-14"):
            self.write("tools/clang-format-14", "#!/bin/sh\necho clang-format version 19.1.0\n", 0o755)
        status, out = self.lint()
        self.assertEqual(status, 0, out)
        self.assertIn("clang-format: left out, version 14 is not here", out)


if __name__ == "__main__":
    unittest.main()
