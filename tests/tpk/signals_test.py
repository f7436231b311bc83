"""Runs that are interrupted at random moments leave the old state or the new one."""
import os
import shutil
import signal
import time
import unittest

from support import ToolTest, seeded

ROUNDS = int(os.environ.get("QUARN_SIGNAL_ROUNDS", "15"))
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class Signals(ToolTest):
    def setUp(self):
        super().setUp()
        self.random = seeded()
        for index in range(300):
            data = self.random.randbytes(2000) + bytes(self.random.randrange(100_000))
            self.write(f"top/d{index % 20}/{index}.bin", data, time=1_600_000_000)
        self.tpk("pack", "top", "-o", "kit.tpk", code=0)

    def timed(self, *arguments):
        start = time.monotonic()
        self.tpk(*arguments, code=0)
        return time.monotonic() - start

    def interrupt(self, duration, *arguments):
        """Starts a run and sends a signal somewhere in the time that such a run takes."""
        process = self.start(*arguments)
        time.sleep(self.random.uniform(0, duration * 1.1))
        process.send_signal(self.random.choice(SIGNALS))
        out, err = process.communicate(timeout=60)
        # A signal before the tool has set itself up ends it as any program.
        self.assertIn(process.returncode, (0, 4, *(-number for number in SIGNALS)), err)
        if process.returncode == 4:
            self.assertIn(b"cancelled", err)
        return process.returncode

    def check_rounds(self, codes):
        self.assertEqual(len(codes), ROUNDS)
        print("exit codes:", {code: codes.count(code) for code in sorted(set(codes))}, flush=True)

    def test_pack_leaves_the_old_kit_or_the_new_one(self):
        duration = self.timed("pack", "top", "-o", "new.tpk", "--level", "9")
        new = (self.work / "new.tpk").read_bytes()
        codes = []
        for _ in range(ROUNDS):
            self.write("out.tpk", "old")
            codes.append(self.interrupt(
                duration, "pack", "top", "-o", "out.tpk", "--level", "9", "--force"))
            self.assertEqual((self.work / "out.tpk").read_bytes(), new if codes[-1] == 0 else b"old")
        self.check_rounds(codes)

    def test_extract_leaves_nothing_or_everything(self):
        duration = self.timed("extract", "kit.tpk", "-o", "new")
        new = self.tree("new")
        codes = []
        for _ in range(ROUNDS):
            codes.append(self.interrupt(duration, "extract", "kit.tpk", "-o", "out"))
            if codes[-1] == 0:
                found = self.tree("out")
                self.assertEqual({n: e for n, e in found.items() if n != "kit.toml"},
                                 {n: e for n, e in new.items() if n != "kit.toml"})
                shutil.rmtree(self.work / "out")
            else:
                self.assertFalse((self.work / "out").exists())
        self.check_rounds(codes)

    def test_install_leaves_the_old_tree_or_the_new_one(self):
        duration = self.timed("install", "kit.tpk", "--to", "new")
        new = self.tree("new")
        for index in range(0, 300, 3):  # an older version of some of the files, and a file of the user's
            self.write(f"old/d{index % 20}/{index}.bin", f"old {index}", time=1_500_000_000)
        self.write("old/d1/mine.txt", "mine", time=1_650_000_000)
        old = self.tree("old")
        new = {**new, "d1/mine.txt": old["d1/mine.txt"]}
        codes = []
        for _ in range(ROUNDS):
            shutil.rmtree(self.work / "target", ignore_errors=True)
            shutil.copytree(self.work / "old", self.work / "target")
            codes.append(self.interrupt(duration, "install", "kit.tpk", "--to", "target"))
            self.assertEqual(self.tree("target"), new if codes[-1] == 0 else old, codes[-1])
        self.check_rounds(codes)

    def test_install_into_a_new_folder_leaves_no_folder_behind(self):
        duration = self.timed("install", "kit.tpk", "--to", "new")
        codes = []
        for _ in range(ROUNDS):
            codes.append(self.interrupt(duration, "install", "kit.tpk", "--to", "a/b/target"))
            self.assertEqual((self.work / "a").exists(), codes[-1] == 0)
            shutil.rmtree(self.work / "a", ignore_errors=True)
        self.check_rounds(codes)

    def test_a_signal_that_the_caller_ignores_stays_ignored(self):
        process = self.start("install", "kit.tpk", "--to", "target", preexec_fn=lambda: signal.signal(
            signal.SIGHUP, signal.SIG_IGN))
        for _ in range(20):
            process.send_signal(signal.SIGHUP)
            time.sleep(0.005)
        process.communicate()
        self.assertEqual(process.returncode, 0)


if __name__ == "__main__":
    unittest.main()
