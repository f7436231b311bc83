"""Real trees of this machine, packed, installed and compared."""
import os
import shutil
import subprocess
import unittest
from pathlib import Path

from support import ToolTest


class RealTrees(ToolTest):
    def check(self, source):
        if not Path(source).is_dir():
            self.skipTest(f"no {source} here")
        self.tpk("pack", source, "-o", "kit.tpk", code=0)
        first = self.json("install", "kit.tpk", "--to", "target")[-1]
        self.assertGreater(first["files"], 1000)
        self.assertEqual(first["written"], first["files"])
        diff = subprocess.run(["diff", "-r", source, "target"], cwd=self.work,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((diff.returncode, diff.stdout), (0, b""))
        seen = 0
        for folder, _, names in os.walk(self.work / "target"):
            for name in names:
                path = Path(folder, name)
                original = Path(source) / path.relative_to(self.work / "target")
                self.assertEqual(int(path.stat().st_mtime), int(original.stat().st_mtime), path)
                seen += 1
        self.assertEqual(seen, first["files"])
        second = self.json("install", "kit.tpk", "--to", "target")[-1]
        self.assertEqual(second["written"], 0)
        self.tpk("verify", "kit.tpk", "--against", "target", code=0)
        self.tpk("verify", "kit.tpk", code=0)
        shutil.rmtree(self.work / "target")
        self.tpk("extract", "kit.tpk", "-o", "unpacked", code=0)
        self.tpk("pack", "unpacked", "-o", "again.tpk", code=0)
        self.assertEqual((self.work / "kit.tpk").read_bytes(), (self.work / "again.tpk").read_bytes())

    def test_header_files(self):
        self.check("/usr/include")

    def test_time_zones(self):
        self.check("/usr/share/zoneinfo")


if __name__ == "__main__":
    unittest.main()
