"""Runs that are killed leave the old state or the new one, at whatever moment it happens.

In the test suite a few dozen runs at random moments, from a seed that is printed. By hand as many as
wanted: TPK=build/release/bin/tpk python3 tests/tpk/verbs/kill_test.py Kills --runs 1000

A second part takes every moment in turn: kill_at.cc, preloaded, ends a small run before the first of
its calls that change something, before the second, and so on.
"""
import os
import shutil
import signal
import subprocess
import sys
import time
import unittest

import kit
from support import SANITIZED, ToolTest, seeded

RUNS = 60
CAUGHT = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
OLD, NOW = 1_500_000_000, 1_600_000_000
NOTE = "an installation into this folder was interrupted"


def state(root):
    """Everything below a folder, to the nanosecond; the times of folders cannot be kept."""
    found = {}
    for path in sorted(root.rglob("*")):
        name = str(path.relative_to(root))
        status = path.lstat()
        if path.is_symlink():
            found[name] = os.readlink(path)
        elif path.is_dir():
            found[name] = status.st_mode
        else:
            found[name] = (status.st_mode, status.st_mtime_ns, status.st_nlink, path.read_bytes())
    return found


class Kills(ToolTest):
    def setUp(self):
        super().setUp()
        self.random = seeded()
        self.counts = {}

    def tearDown(self):
        if self.counts:
            print(self.id().split(".")[-1], self.counts, flush=True)
        super().tearDown()

    def count(self, what):
        self.counts[what] = self.counts.get(what, 0) + 1

    def make_kits(self, files, size):
        """kit.tpk; image.tpk, which holds the same in an order that needs an image on the disk;
        cut.tpk, which ends in the middle of the last file."""
        names = [f"d{index % 7}/{'sub/' if index % 3 else ''}{index}.bin" for index in range(files)]
        contents = [self.random.randbytes(size // 10) + bytes(self.random.randrange(size))
                    for _ in names]
        for name, data in zip(names, contents):
            self.write(f"top/{name}", data, time=NOW)
        self.tpk("pack", "top", "-o", "kit.tpk", code=0)
        made = kit.read((self.work / "kit.tpk").read_bytes())
        data_area = b"".join(file.data for file in made.files)
        self.write("cut.tpk", kit.deflate(kit.image(made)[:-size // 20]))
        for file in made.files:
            file.data = b""
        made.files.reverse()
        made.files[0].data = data_area
        for file in made.files:
            file.size = len((self.work / "top" / file.name.replace("\\", "/")).read_bytes())
        self.write("image.tpk", kit.write(made))
        self.assertEqual({file.name: file.data for file in kit.read(
            (self.work / "image.tpk").read_bytes()).files},
            {file.name: file.data for file in kit.read(
                (self.work / "kit.tpk").read_bytes()).files})
        # What is there before: older versions of some files, a link, and a file of the user's.
        for index, name in enumerate(names):
            if index % 4 == 0:
                path = self.write(f"before/{name}", f"old {index}", time=OLD)
                os.utime(path, ns=(OLD * 10**9 + 5, OLD * 10**9 + 123456789))
        self.write("before/d1/mine.txt", "mine", time=NOW)
        linked = self.work / "before" / names[1]
        linked.parent.mkdir(parents=True, exist_ok=True)
        linked.unlink(missing_ok=True)
        linked.symlink_to("nowhere")

    def make_linked_kits(self):
        """kit.tpk and cut.tpk, with files that are reached by two names: through a linked folder, a
        link that leads to its own folder, one that leads out of the target, and a hard link."""
        names = ["dir/f", "link/f", "loop/dir/g", "dir/g", "out/h", "link/new", "dir/new", "one",
                 "dir/two", "loop/loop/dir/made/n", "link/made/n", "last"]
        made = kit.Kit([kit.Product("en", "N")], [
            kit.File(name.replace("/", "\\"), self.random.randbytes(900),
                     (NOW + number) * 10**7 + 116444736 * 10**9)
            for number, name in enumerate(names)])
        data = kit.write(made)
        self.write("kit.tpk", data)
        self.write("cut.tpk", kit.deflate(kit.image(made)[:-50]))
        for name in ("dir/f", "dir/g", "one"):
            path = self.write(f"before/{name}", f"mine {name}", time=OLD)
            os.utime(path, ns=(OLD * 10**9 + 5, OLD * 10**9 + 123456789))
        self.write("beside/h", "mine h", time=OLD)
        for name, to in (("link", "dir"), ("loop", "."), ("out", "../elsewhere")):
            (self.work / "before" / name).symlink_to(to)

    def reset(self, target, with_before):
        shutil.rmtree(self.work / "place", ignore_errors=True)
        (self.work / "place").mkdir()
        if with_before:
            shutil.copytree(self.work / "before", target, symlinks=True)
        if (self.work / "beside").exists():
            shutil.copytree(self.work / "beside", self.work / "place/elsewhere")
            os.link(target / "one", target / "dir/two")

    def timed(self, *arguments):
        start = time.monotonic()
        self.tpk(*arguments, code=0)
        return time.monotonic() - start

    def kill(self, duration, number, *arguments):
        """Starts a run and sends a signal somewhere in the time that such a run takes."""
        process = self.start(*arguments)
        time.sleep(self.random.uniform(0, duration * 1.1))
        process.send_signal(number)
        _, err = process.communicate(timeout=60)
        # A signal before the tool has set itself up ends it as any program.
        self.assertIn(process.returncode, (0, 4, -number), err)
        if process.returncode == 4:
            self.assertIn(b"cancelled", err)
        self.count(f"{signal.Signals(number).name} {process.returncode}")
        return process.returncode

    def journals(self):
        return bool(list(self.work.rglob(".tpk-install*/journal")))

    def left(self):
        """What runs have left behind."""
        return [str(path.relative_to(self.root)) for path in self.root.rglob(".tpk-*")]

    def finish(self, target, before, after):
        """What the next installation makes of what a kill has left."""
        journal = self.journals()
        self.count("journal left" if journal else "nothing to undo")
        if self.random.random() < 0.5:
            run = self.tpk("install", "kit.tpk", "--to", target, code=0)
            self.assertEqual(state(self.work / "place"), after)
        else:
            # One that fails itself: back to where all began, or, where nothing was to be undone,
            # to where the kill came too early or too late.
            found = state(self.work / "place")
            if not journal:
                for path in self.left():
                    found = {name: entry for name, entry in found.items()
                             if ".tpk-install" not in name}
                self.assertIn(found, (before, after))
            run = self.tpk("install", "cut.tpk", "--to", target)
            self.assertIn(run.code, (0, 2), "where all is up to date the cut is never met")
            if run.code == 2 or journal:
                self.assertEqual(state(self.work / "place"), before if journal else found)
        self.assertEqual(NOTE in run.err, journal, run)
        self.assertEqual(self.left(), [])

    def install_rounds(self, rounds, kit_name, with_before):
        target = self.work / "place" / ("" if with_before else "a/b") / "target"
        self.reset(target, with_before)
        before = state(self.work / "place")
        duration = self.timed("install", kit_name, "--to", target)
        after = state(self.work / "place")
        for _ in range(rounds):
            self.reset(target, with_before)
            number = self.random.choice((*CAUGHT, signal.SIGKILL, signal.SIGKILL))
            code = self.kill(duration, number, "install", kit_name, "--to", target)
            if number != signal.SIGKILL and code in (0, 4):
                self.assertEqual(state(self.work / "place"), after if code == 0 else before)
            else:
                for _ in range(self.random.choice((0, 0, 1, 2))):  # killed while it undoes
                    self.kill(duration, signal.SIGKILL, "install", kit_name, "--to", target)
                self.finish(target, before, after)

    def test_install_over_an_older_version(self):
        self.make_kits(300, 50_000)
        self.install_rounds(RUNS // 4, "kit.tpk", True)

    def test_install_into_a_new_folder(self):
        self.make_kits(300, 50_000)
        self.install_rounds(RUNS // 4, "kit.tpk", False)

    def test_install_from_an_image(self):
        self.make_kits(300, 50_000)
        self.install_rounds(RUNS // 8, "image.tpk", True)

    def test_pack(self):
        self.make_kits(100, 100_000)
        arguments = ("pack", "top", "-o", "place/out.tpk", "--level", "9", "--force")
        (self.work / "place").mkdir()
        duration = self.timed(*arguments)
        after = (self.work / "place/out.tpk").read_bytes()
        for _ in range(RUNS * 3 // 16):
            self.write("place/out.tpk", "old")
            number = self.random.choice((*CAUGHT, signal.SIGKILL))
            code = self.kill(duration, number, *arguments)
            found = (self.work / "place/out.tpk").read_bytes()
            if code == -signal.SIGKILL:
                self.assertIn(found, (after, b"old"))
                self.tpk(*arguments, code=0)
            else:
                self.assertEqual(found, after if code == 0 else b"old")
            self.assertEqual(os.listdir(self.work / "place"), ["out.tpk"])

    def test_extract(self):
        self.make_kits(300, 50_000)
        arguments = ("extract", "kit.tpk", "-o", "place/out")
        (self.work / "place").mkdir()
        duration = self.timed(*arguments)
        contents = self.tree("place/out")
        contents.pop("kit.toml")  # a new file, with the time of today
        for _ in range(RUNS * 3 // 16):
            shutil.rmtree(self.work / "place/out", ignore_errors=True)
            number = self.random.choice((*CAUGHT, signal.SIGKILL))
            code = self.kill(duration, number, *arguments)
            if (self.work / "place/out").exists():
                self.assertIn(code, (0, -signal.SIGKILL))
            elif code == -signal.SIGKILL:
                self.tpk(*arguments, code=0)
            else:
                self.assertNotEqual(code, 0)
            if (self.work / "place/out").exists():
                found = self.tree("place/out")
                self.assertTrue(found.pop("kit.toml"))
                self.assertEqual(found, contents)
                self.assertEqual(os.listdir(self.work / "place"), ["out"])

    def test_of_several_at_once_one_installs_and_the_others_are_refused(self):
        self.make_kits(100, 20_000)
        for with_before in (True, False) * (RUNS // 20):
            target = self.work / "place" / ("" if with_before else "a/b") / "target"
            self.reset(target, with_before)
            runs = []
            for _ in range(3):
                runs.append(self.start("install", "kit.tpk", "--to", target))
                time.sleep(self.random.uniform(0, 0.02))
            for process in runs:
                _, err = process.communicate(timeout=60)
                self.count(process.returncode)
                self.assertIn(process.returncode, (0, 3), err)
                if process.returncode == 3:
                    self.assertIn(b"another installation into this folder is running", err)
            self.tpk("install", "kit.tpk", "--to", target, code=0)
            self.tpk("verify", "kit.tpk", "--against", target, code=0)
            self.assertEqual(self.left(), [])

    def test_a_signal_that_the_caller_ignores_stays_ignored(self):
        self.make_kits(100, 50_000)
        process = self.start("install", "kit.tpk", "--to", "target", preexec_fn=lambda: signal.signal(
            signal.SIGHUP, signal.SIG_IGN))
        for _ in range(20):
            process.send_signal(signal.SIGHUP)
            time.sleep(0.005)
        process.communicate()
        self.assertEqual(process.returncode, 0)


@unittest.skipIf(SANITIZED or "KILL_AT" not in os.environ, "needs a preloaded library")
class EveryMoment(Kills):
    """Killed before the first call that changes something, before the second one, and so on."""

    def killed_at(self, call, number, *arguments):
        """A run that gets a signal before its call of this number; None when it has no such call."""
        self.environment.update(LD_PRELOAD=os.environ["KILL_AT"], QUARN_KILL_AT=f"{call} {number}")
        run = self.tpk(*arguments)
        del self.environment["LD_PRELOAD"], self.environment["QUARN_KILL_AT"]
        self.assertIn(run.code, (0, 2, 4, -number), run)
        return run

    def target_before_and_after(self, kit_name, with_before):
        """Where to install to, and the states before and after an installation that nothing disturbs."""
        target = self.work / "place" / ("" if with_before else "a/b") / "target"
        self.reset(target, with_before)
        before = state(self.work / "place")
        self.tpk("install", kit_name, "--to", target, code=0)
        return target, before, state(self.work / "place")

    def install_at_every_call(self, kit_name, with_before, number):
        target, before, after = self.target_before_and_after(kit_name, with_before)
        codes = set()
        for call in range(1, 1000):
            self.reset(target, with_before)
            run = self.killed_at(call, number, "install", kit_name, "--to", target)
            codes.add(run.code)
            if run.code == -signal.SIGKILL:
                self.finish(target, before, after)
            else:
                self.assertEqual(state(self.work / "place"), after if run.code == 0 else before)
                self.assertEqual(self.left(), [])
            # A caught signal lets a run succeed for which it comes too late.
            if run.code == 0 and (number == signal.SIGKILL or call >= 150):
                break
        self.count(f"calls {call}")
        self.assertGreater(call, 60)
        self.assertEqual(codes, {0, -number if number == signal.SIGKILL else 4})

    def test_install_over_an_older_version(self):
        self.make_kits(8, 4000)
        self.install_at_every_call("kit.tpk", True, signal.SIGKILL)

    def test_install_into_a_new_folder(self):
        self.make_kits(8, 4000)
        self.install_at_every_call("kit.tpk", False, signal.SIGKILL)

    def test_install_from_an_image(self):
        self.make_kits(8, 4000)
        self.install_at_every_call("image.tpk", True, signal.SIGKILL)

    def test_install_cancelled(self):
        self.make_kits(8, 4000)
        self.install_at_every_call("kit.tpk", True, signal.SIGINT)

    def test_install_through_links(self):
        self.make_linked_kits()
        self.install_at_every_call("kit.tpk", True, signal.SIGKILL)

    def test_install_through_links_cancelled(self):
        self.make_linked_kits()
        self.install_at_every_call("kit.tpk", True, signal.SIGINT)

    def test_an_install_that_fails(self):
        """Its own undoing is killed."""
        self.make_kits(8, 4000)
        self.fail_at_every_call()

    def test_an_install_through_links_that_fails(self):
        self.make_linked_kits()
        self.fail_at_every_call()

    def fail_at_every_call(self):
        target, before, after = self.target_before_and_after("kit.tpk", True)
        for call in range(1, 1000):
            self.reset(target, True)
            run = self.killed_at(call, signal.SIGKILL, "install", "cut.tpk", "--to", target)
            if run.code == 2:
                break
            self.finish(target, before, after)
        self.count(f"calls {call}")
        self.assertEqual(state(self.work / "place"), before)
        self.assertGreater(call, 60)

    def test_undoing(self):
        """What a kill late in a run has left, with the next run killed at every call."""
        self.make_kits(8, 4000)
        self.undo_at_every_call()

    def test_undoing_through_links(self):
        self.make_linked_kits()
        self.undo_at_every_call()

    def undo_at_every_call(self):
        target, before, after = self.target_before_and_after("kit.tpk", True)
        # The last call before which there still is a journal.
        for late in range(400, 0, -1):
            self.reset(target, True)
            self.killed_at(late, signal.SIGKILL, "install", "kit.tpk", "--to", target)
            if self.journals():
                break
            if self.left():
                self.tpk("install", "kit.tpk", "--to", target, code=0)
        self.assertGreater(late, 40)
        for call in range(1, 1000):
            self.reset(target, True)
            self.killed_at(late, signal.SIGKILL, "install", "kit.tpk", "--to", target)
            self.assertTrue(self.journals())
            run = self.killed_at(call, signal.SIGKILL, "install", "kit.tpk", "--to", target)
            if run.code == 0:
                break
            self.finish(target, before, after)
        self.count(f"calls {call}")
        self.assertEqual(state(self.work / "place"), after)
        self.assertGreater(call, 80)

    def test_pack(self):
        self.make_kits(8, 4000)
        arguments = ("pack", "top", "-o", "place/out.tpk", "--force")
        (self.work / "place").mkdir()
        self.tpk(*arguments, code=0)
        after = (self.work / "place/out.tpk").read_bytes()
        for call in range(1, 1000):
            self.write("place/out.tpk", "old")
            run = self.killed_at(call, signal.SIGKILL, *arguments)
            found = (self.work / "place/out.tpk").read_bytes()
            self.assertIn(found, (after, b"old"))
            if run.code == 0:
                break
            self.tpk(*arguments, code=0)
            self.assertEqual(os.listdir(self.work / "place"), ["out.tpk"])
        self.count(f"calls {call}")
        self.assertGreater(call, 5)

    def test_extract(self):
        self.make_kits(8, 4000)
        arguments = ("extract", "kit.tpk", "-o", "place/out")
        for call in range(1, 1000):
            shutil.rmtree(self.work / "place", ignore_errors=True)
            run = self.killed_at(call, signal.SIGKILL, *arguments)
            if (self.work / "place/out").exists():
                names = {name for name in self.tree("place/out") if not name.endswith("/")}
                self.assertEqual(names, {"kit.toml"} | {
                    f"files/{name}" for name in self.tree("top") if not name.endswith("/")})
            if run.code == 0:
                break
            self.tpk(*arguments[:-1], "place/other", code=0)
            self.assertEqual(self.left(), [])
        self.count(f"calls {call}")
        self.assertGreater(call, 40)


class Folding(Kills):
    """On a volume that takes letters of either case for the same, nothing is lost either."""

    def setUp(self):
        super().setUp()
        self.volume = self.work / "place"
        self.volume.mkdir()
        image = self.work / "volume.img"
        with open(image, "wb") as file:
            file.truncate(40 << 20)
        # It lists all names in small letters.
        for command in (["mkntfs", "-q", "-F", image],
                        ["lowntfs-3g", "-o", "ignore_case", image, self.volume]):
            if not shutil.which(command[0]):
                self.skipTest(f"needs {command[0]}")
            subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if not os.path.ismount(self.volume):
            self.skipTest("no volume can be mounted here")
        self.addCleanup(subprocess.run, ["umount", self.volume])
        self.target = self.volume / "target"

    def set_scene(self):
        shutil.rmtree(self.target, ignore_errors=True)
        for name in ("readme.txt", "folder/first.txt", "folder/second.txt"):
            self.write(f"place/target/{name}", f"mine {name}", time=OLD)
        return state(self.volume)

    def test_an_install_that_fails_or_is_killed(self):
        names = ["README.TXT", "readme.txt", "folder/first.TXT", "FOLDER/new", "folder/NEW",
                 "Folder/First.txt", "Folder/sEcond.txt", "last"]
        made = kit.Kit([kit.Product("en", "N")], [
            kit.File(name.replace("/", "\\"), self.random.randbytes(900),
                     (NOW + 2 * number) * 10**7 + 116444736 * 10**9)
            for number, name in enumerate(names)])
        self.write("kit.tpk", kit.write(made))
        self.write("cut.tpk", kit.deflate(kit.image(made)[:-50]))
        before = self.set_scene()
        self.assertTrue((self.target / "rEADME.txt").exists(), "it folds")
        self.tpk("install", "cut.tpk", "--to", self.target, code=2)
        self.assertEqual(state(self.volume), before)
        duration = self.timed("install", "kit.tpk", "--to", self.target)
        for _ in range(RUNS // 6):
            self.assertEqual(self.set_scene(), before)
            if self.kill(duration, signal.SIGKILL, "install", "kit.tpk", "--to", self.target) != 0:
                run = self.tpk("install", "cut.tpk", "--to", self.target)
                if run.code == 2:
                    self.assertEqual(state(self.volume), before)
            self.assertEqual(self.left(), [])


def load_tests(loader, tests, pattern):
    suite = unittest.TestSuite()
    for case in (Kills, EveryMoment, Folding):
        for name in loader.getTestCaseNames(case):
            if name in vars(case):
                suite.addTest(case(name))
    return suite


if __name__ == "__main__":
    if "--runs" in sys.argv:
        at = sys.argv.index("--runs")
        RUNS = int(sys.argv[at + 1])
        del sys.argv[at : at + 2]
    unittest.main()
