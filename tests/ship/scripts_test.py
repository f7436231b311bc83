"""The scripts of the development: which tests run twice, and that the check of the style finds something."""
import os
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
