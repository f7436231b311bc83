"""Runs tpk in a scratch directory of each test's own, with HOME and TMPDIR in it."""
import json
import os
import random
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

TPK = str(Path(os.environ["TPK"]).resolve())
SANITIZED = os.environ.get("QUARN_SANITIZED") == "1"
SOURCE_ROOT = Path(__file__).resolve().parents[3]
VERBS = re.findall(r"(?m)^QUARN_VERB\((\w+),", (SOURCE_ROOT / "tpk/verbs/verbs.inc").read_text())


class Run:
    def __init__(self, process, out, err):
        self.code, self.out, self.err = process.returncode, out, err

    def lines(self):
        """The JSON objects on standard output."""
        return [json.loads(line) for line in self.out.splitlines()]

    def __repr__(self):
        return f"exit {self.code}\n--- out\n{self.out}--- err\n{self.err}"


class ToolTest(unittest.TestCase):
    def setUp(self):
        self.root = Path(tempfile.mkdtemp(prefix="tpk-test-")).resolve()
        self.addCleanup(shutil.rmtree, self.root, ignore_errors=True)
        for name in ("home", "tmp", "work"):
            (self.root / name).mkdir()
        self.work = self.root / "work"
        self.environment = {
            "PATH": os.environ["PATH"],
            "HOME": str(self.root / "home"),
            "TMPDIR": str(self.root / "tmp"),
            "LC_ALL": "C.UTF-8",
            "TZ": "UTC",
            # A process that runs out of address space must say so itself.
            "ASAN_OPTIONS": "allocator_may_return_null=1",
        }

    def tearDown(self):
        self.assertEqual(os.listdir(self.root / "tmp"), [], "left in the temporary directory")
        left = [path for path in self.work.rglob("*") if path.name.startswith(".tpk-")]
        self.assertEqual(left, [], "left beside the results")

    def start(self, *arguments, **options):
        return subprocess.Popen(
            [TPK, *map(str, arguments)],
            cwd=self.work,
            env=self.environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            **options,
        )

    def tpk(self, *arguments, code=None, **options):
        """Runs tpk to its end; `code` is the exit code it must have."""
        process = self.start(*arguments, **options)
        out, err = process.communicate(timeout=300)
        run = Run(process, out.decode(), err.decode())
        if code is not None:
            self.assertEqual(run.code, code, f"tpk {' '.join(map(str, arguments))}\n{run}")
        return run

    def json(self, *arguments, code=0):
        """The JSON lines of a run."""
        return self.json_run(*arguments, code=code).lines()

    def json_run(self, *arguments, code=0):
        """A run with JSON lines, checked for what all of them have in common."""
        run = self.tpk(*arguments, "--json", code=code)
        lines = run.lines()
        self.assertTrue(lines, run)
        for line in lines:
            self.assertEqual(line["schema"], 1, line)
            self.assertEqual(list(line)[:2], ["type", "schema"], line)
        ends = [line for line in lines if line["type"] in ("result", "error")]
        self.assertEqual(ends, lines[-1:], "exactly one end, and at the end")
        self.assertEqual(lines[-1]["exit"], code)
        self.assertEqual(run.err, "", "with --json nothing goes to standard error")
        return run

    def write(self, name, data=b"", time=1700000000):
        """A file in the working directory."""
        path = self.work / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data if isinstance(data, bytes) else data.encode())
        os.utime(path, (time, time))
        return path

    def tree(self, name):
        """What is below a folder of the working directory: contents and whole seconds, or where
        a link leads."""
        root = self.work / name
        found = {}
        for path in sorted(root.rglob("*")):
            relative = str(path.relative_to(root))
            if path.is_symlink():
                found[relative] = os.readlink(path)
            elif path.is_dir():
                found[relative + "/"] = None
            else:
                found[relative] = (path.read_bytes(), int(path.stat().st_mtime))
        return found


def seeded():
    """A generator whose seed is printed, and taken from QUARN_TEST_SEED where that is set."""
    seed = int(os.environ.get("QUARN_TEST_SEED") or random.SystemRandom().randrange(2**32))
    print(f"QUARN_TEST_SEED={seed}", flush=True)
    return random.Random(seed)


if __name__ == "__main__":
    unittest.main()
