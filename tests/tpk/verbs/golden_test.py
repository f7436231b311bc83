"""Every golden kit, through every verb, as text and as JSON, against what is written down.

QUARN_UPDATE_GOLDEN=1 writes down what the tool says now; read the difference before you commit it.
"""
import os
import shutil
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent / "golden"))
import make  # noqa: E402
from support import ToolTest  # noqa: E402

GOLDEN = Path(__file__).parent / "golden"
KITS = sorted(path.stem for path in GOLDEN.glob("*.tpk"))


class GoldenKits(ToolTest):
    def transcript(self, name):
        shutil.copy(GOLDEN / f"{name}.tpk", self.work / "kit.tpk")
        text = ""
        for command in (
            "list kit.tpk",
            "info kit.tpk",
            "verify kit.tpk",
            "plan kit.tpk --to target",
            "extract kit.tpk -o unpacked",
            "pack unpacked -o again.tpk",
            "install kit.tpk --to target",
            "verify kit.tpk --against target",
            "diff kit.tpk kit.tpk",
        ):
            run = self.tpk(*command.split())
            text += f"$ tpk {command}\n{run.out}"
            text += "".join(f"! {line}\n" for line in run.err.splitlines())
            text += f"= {run.code}\n"
            # JSON has no other end than text has. What writes does so elsewhere.
            verb, *arguments = command.split()
            if verb in ("extract", "pack", "install"):
                arguments[-1] += ".2"
            text += self.json_run(verb, *arguments, code=run.code).out
        return text.replace(str(self.work), "WORK")

    def check(self, name):
        expected = GOLDEN / f"{name}.txt"
        found = self.transcript(name)
        if os.environ.get("QUARN_UPDATE_GOLDEN") == "1":
            expected.write_text(found)
        self.maxDiff = None
        self.assertEqual(found, expected.read_text())

    def test_the_kits_in_the_tree_are_those_that_make_py_makes(self):
        kits = make.kits()
        self.assertEqual(sorted(kits), KITS)
        for name, data in kits.items():
            self.assertEqual((GOLDEN / f"{name}.tpk").read_bytes(), data, name)


for kit_name in KITS:
    setattr(GoldenKits, f"test_{kit_name}", lambda self, name=kit_name: self.check(name))

if __name__ == "__main__":
    unittest.main()
