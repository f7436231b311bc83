"""What starts the wizard: a temporary directory of its own, whatever happens to it.

The wizard here is a script that tells what it sees.
"""
import os
import shutil
import signal
import subprocess
import time
import unittest

from support import SOURCE_ROOT, ToolTest

TELL = """#!/bin/sh
printf '%s\\n' "$TMPDIR" "$PWD" "$@" >"$SEEN"
"""


class Launcher(ToolTest):
    def setUp(self):
        super().setUp()
        self.folder = self.root / "a folder"
        self.folder.mkdir()
        self.start_setup = self.folder / "start-setup"
        shutil.copy(SOURCE_ROOT / "packaging/start-setup", self.start_setup)
        self.seen = self.root / "seen"
        self.environment["SEEN"] = str(self.seen)
        self.wizard(TELL)

    def wizard(self, text, path="setup"):
        path = self.folder / path
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        path.chmod(0o755)

    def launch(self, *arguments, start=None, **options):
        # A reader of its own for each shell that may be /bin/sh somewhere.
        return subprocess.Popen([os.environ.get("QUARN_TEST_SHELL", "sh"), start or self.start_setup, *arguments],
                                cwd=self.work, env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, **options)

    def run_to_end(self, *arguments, **options):
        process = self.launch(*arguments, **options)
        _, err = process.communicate(timeout=60)
        return process.returncode, err.decode()

    def lines(self):
        return self.seen.read_text().splitlines()

    def wait_for(self, path):
        for _ in range(600):
            if path.exists() and path.stat().st_size:
                return
            time.sleep(0.05)
        self.fail(f"{path} never came")

    def test_the_wizard_gets_an_empty_directory_of_its_own(self):
        self.wizard(TELL + 'ls -A "$TMPDIR" | wc -l >>"$SEEN"; stat -c %a "$TMPDIR/.." >>"$SEEN"\n')
        (self.root / "tmp/mine").write_text("kept")
        self.assertEqual(self.run_to_end(), (0, ""))
        directory, _, entries, mode = self.lines()
        self.assertTrue(directory.startswith(f"{self.root}/tmp/quarn-setup."), directory)
        self.assertEqual((entries.strip(), mode), ("0", "700"))
        self.assertEqual(os.listdir(self.root / "tmp"), ["mine"])
        os.remove(self.root / "tmp/mine")

    def test_no_rm_removes_the_directory_under_the_name_that_the_wizard_has(self):
        """Else a wizard whose first pass failed would go on, and remove, in /var/tmp."""
        self.wizard(TELL + 'rm -rf "$TMPDIR/" "$TMPDIR" 2>/dev/null; [ -d "$TMPDIR" ] && echo kept >>"$SEEN"\n')
        self.run_to_end()
        self.assertEqual(self.lines()[-1], "kept")

    def test_arguments_and_working_directory_are_passed_on(self):
        self.run_to_end("usecwd", "-S", "two words", "")
        self.assertEqual(self.lines()[1:], [str(self.work), "usecwd", "-S", "two words", ""])

    def test_it_finds_the_wizard_by_its_own_place_through_links(self):
        link = self.work / "link"
        link.symlink_to(self.start_setup)
        self.run_to_end(start=link)
        self.assertTrue(self.seen.exists())

    def test_it_finds_the_wizard_in_an_application_and_where_it_is_installed(self):
        os.remove(self.folder / "setup")
        for place in ("Setup.app/Contents/MacOS/setup", "libexec/quarn-setup/setup"):
            self.wizard(TELL, place)
            os.makedirs(self.folder / "bin", exist_ok=True)
            starter = self.folder / "bin/quarn-setup"
            shutil.copy(self.start_setup, starter)
            self.run_to_end(start=starter if place.startswith("libexec") else None)
            self.assertTrue(self.seen.exists(), place)
            os.remove(self.seen)
            os.remove(self.folder / place)

    def test_installed_it_starts_no_setup_of_somebody_else(self):
        self.wizard("exit 77", "bin/setup")
        starter = self.folder / "bin/quarn-setup"
        shutil.copy(self.start_setup, starter)
        self.wizard(TELL, "libexec/quarn-setup/setup")
        self.run_to_end(start=starter)
        self.assertTrue(self.seen.exists())
        # Without a wizard there is none.
        os.remove(self.folder / "libexec/quarn-setup/setup")
        self.assertEqual(self.run_to_end(start=starter)[0], 127)

    def test_a_bundle_may_be_called_bin(self):
        self.wizard(TELL, "bin/setup")
        shutil.copy(self.start_setup, self.folder / "bin/start-setup")
        (self.folder / "bin/quarn.tpk").write_bytes(b"kit")
        self.run_to_end(start=self.folder / "bin/start-setup")
        self.assertTrue(self.seen.exists())

    def test_a_parent_that_a_shell_would_not_take_literally_is_not_used(self):
        for name in ('do$lar', 'quo"te', "back`tick", "back\\slash", "with:colon", "new\nline", "ende\n", "größe"):
            parent = self.root / name
            parent.mkdir()
            self.environment["TMPDIR"] = str(parent)
            self.assertEqual(self.run_to_end()[0], 0)
            self.assertTrue(self.lines()[0].startswith("/var/tmp/quarn-setup."), name)
            self.assertFalse(os.path.exists(self.lines()[0]))

    def test_a_parent_that_is_relative_missing_or_unset_is_not_used(self):
        for value in ("tmp", str(self.root / "nowhere"), "", None):
            self.environment.pop("TMPDIR", None)
            if value is not None:
                self.environment["TMPDIR"] = value
            self.assertEqual(self.run_to_end()[0], 0)
            self.assertTrue(self.lines()[0].startswith("/var/tmp/quarn-setup."), value)
            self.assertFalse(os.path.exists(self.lines()[0]))

    def test_the_directory_goes_however_the_wizard_ends(self):
        for end, status in (("exit 0", 0), ("exit 3", 3), ("kill -TERM $$", 143), ("kill -KILL $$", 137),
                            ("kill -SEGV $$", 139)):
            self.wizard(TELL + 'mkdir "$TMPDIR/kstage0"; touch "$TMPDIR/kstage0/file"\n' + end + "\n")
            self.assertEqual(self.run_to_end()[0], status, end)
            self.assertEqual(os.listdir(self.root / "tmp"), [], end)

    def test_a_signal_ends_the_wizard_and_the_directory(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP, signal.SIGQUIT):
            # A command of the wizard's that goes on by itself would fill the directory again.
            self.wizard(TELL + '(while :; do mkdir -p "$TMPDIR/again" || exit; sleep 0.01; done) &\nwait\nsleep 60\n')
            process = self.launch()
            self.wait_for(self.seen)
            process.send_signal(number)
            process.communicate(timeout=60)
            # A shell that never takes SIGQUIT itself ends with the wizard's status.
            self.assertIn(process.returncode, (-number, 143 if number == signal.SIGQUIT else -number))
            self.assertEqual(os.listdir(self.root / "tmp"), [], number)
            os.remove(self.seen)

    def test_a_signal_while_the_directory_is_made_leaves_none(self):
        tools = self.root / "tools"
        tools.mkdir()
        made, go = self.root / "made", self.root / "go"
        (tools / "mktemp").write_text(f'#!/bin/sh\n{shutil.which("mktemp")} "$@"\necho made >"{made}"\n'
                                      f'while [ ! -e "{go}" ] && [ -e "{made}" ]; do sleep 0.01; done\n')
        (tools / "mktemp").chmod(0o755)
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        self.wizard(TELL + "sleep 60\n")
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            process = self.launch()
            self.wait_for(made)
            process.send_signal(number)
            go.touch()
            process.communicate(timeout=60)
            self.assertEqual(process.returncode, -number)
            self.assertEqual(os.listdir(self.root / "tmp"), [], number)
            os.remove(made)
            os.remove(go)

    def test_an_ignored_signal_stays_ignored(self):
        self.wizard(TELL + 'sleep 0.5\necho end >>"$SEEN"\n')
        process = self.launch(preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        self.wait_for(self.seen)
        process.send_signal(signal.SIGHUP)
        process.communicate(timeout=60)
        self.assertEqual((process.returncode, self.lines()[-1]), (0, "end"))

    def test_a_viewer_keeps_the_users_own_directory(self):
        tools = self.root / "tools"
        tools.mkdir()
        viewer = tools / "xdg-open"
        viewer.write_text('#!/bin/sh\nprintf "%s\\n" "${TMPDIR-none}" "$PATH" "$1" >"$SEEN.part"; mv "$SEEN.part" "$SEEN"\n')
        viewer.chmod(0o755)
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        self.wizard('#!/bin/sh\nopen "a file"\n')
        odd = self.root / "it's"
        odd.mkdir()
        for own in (str(self.root / "tmp"), str(odd), None):
            self.environment.pop("TMPDIR", None)
            if own:
                self.environment["TMPDIR"] = own
            self.run_to_end()
            self.wait_for(self.seen)
            self.assertEqual(self.lines(), [own or "none", self.environment["PATH"], "a file"])
            os.remove(self.seen)

    def test_without_a_wizard_it_says_so(self):
        os.remove(self.folder / "setup")
        status, err = self.run_to_end()
        self.assertEqual(status, 127)
        self.assertIn("start-setup: The wizard \"setup\" is missing", err)
        self.assertFalse(self.seen.exists())

    def test_what_is_no_program_is_told(self):
        (self.folder / "setup").write_bytes(b"\x7fELF not really")
        status, err = self.run_to_end("-S")
        self.assertIn(status, (126, 127))
        self.assertIn("does not start on this system", err)

    def missing_library(self):
        # A program of this machine whose library is gone by the time it starts.
        for name, text, more in (("gone", "int Gone() { return 0; }", ["-shared", "-fPIC", "-o", "libgone.so"]),
                                 ("main", "int Gone(); int main() { return Gone(); }",
                                  ["-o", self.folder / "setup", "-L.", "-lgone"])):
            (self.work / f"{name}.cc").write_text(text)
            subprocess.run(["c++", f"{name}.cc", *more], cwd=self.work, check=True)
        os.remove(self.work / "libgone.so")

    def test_missing_libraries_are_named_with_the_packages(self):
        self.missing_library()
        status, err = self.run_to_end()
        self.assertEqual(status, 127)
        self.assertIn("libgone.so => not found", err)
        self.assertIn("libqt6widgets6", err)

    def test_a_complaint_is_shown_in_a_window_unless_it_is_silent(self):
        tools = self.root / "tools"
        tools.mkdir()
        (tools / "zenity").write_text('#!/bin/sh\necho "$@" >"$SEEN"\n')
        (tools / "zenity").chmod(0o755)
        self.environment.update(PATH=f"{tools}:{self.environment['PATH']}", DISPLAY=":99")
        os.remove(self.folder / "setup")
        self.run_to_end("/Silent")
        self.assertFalse(self.seen.exists())
        self.run_to_end("-Lde")
        self.assertIn("--error --no-markup --text=The wizard", self.seen.read_text())


if __name__ == "__main__":
    unittest.main()
