"""The documents: what they name exists, and what they tell to type is what script/follow-docs executes."""
import os
import re
import shutil
import subprocess
import unittest
from pathlib import Path

from support import SOURCE_ROOT, TPK, ToolTest

DOCUMENTS = sorted([*SOURCE_ROOT.glob("*.md"), *SOURCE_ROOT.glob("docs/*.md"), *SOURCE_ROOT.glob("examples/*.md")])
PATHS = {"user", "vendor", "contributor", "rollout"}
# What a build or an installation makes.
MADE = ("build/", "dist/", "libexec/", "include/")
SETUP = os.environ.get("SETUP")


def blocks(document):
    """The fenced blocks: (words behind the fence, text)."""
    return [(info.split(), text) for info, text in
            re.findall(r"(?ms)^```([^\n]*)\n(.*?)^```$", document.read_text())]


def prose(document):
    return re.sub(r"(?ms)^```.*?^```$", "", document.read_text())


def anchors(document):
    for heading in re.findall(r"(?m)^#+ (.*)$", prose(document)):
        yield re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


class Documents(unittest.TestCase):
    def test_there_are_some(self):
        self.assertGreater(len(DOCUMENTS), 8)

    def test_every_link_leads_somewhere(self):
        for document in DOCUMENTS:
            for target in re.findall(r"\]\(([^)\s]+)\)", prose(document)):
                if re.match(r"[a-z]+:", target):
                    continue
                name, _, anchor = target.partition("#")
                path = document.parent / name if name else document
                self.assertTrue(path.exists(), f"{document.name}: {target}")
                if anchor:
                    self.assertIn(anchor, anchors(path), f"{document.name}: {target}")

    def test_every_file_that_is_named_exists(self):
        """Names of the tree in backquotes: those that begin with one of its folders."""
        tops = {path.name for path in SOURCE_ROOT.iterdir() if path.is_dir()} - {"build", "dist"}
        for document in DOCUMENTS:
            for name in re.findall(r"`([A-Za-z0-9_.*/<>-]+)", prose(document)):
                if name.split("/")[0] not in tops or "/" not in name or name.startswith(MADE):
                    continue
                pattern = re.sub(r"<[^>]*>", "*", name.rstrip("/").rstrip("."))
                found = list(SOURCE_ROOT.glob(pattern)) or list(SOURCE_ROOT.glob(pattern + ".*"))
                self.assertTrue(found, f"{document.name}: {name}")

    def test_every_block_of_commands_is_on_a_path(self):
        for document in DOCUMENTS:
            for words, text in blocks(document):
                if words and words[0] in ("sh", "bash", "yaml", "puppet"):
                    self.assertTrue(len(words) > 1 and words[1] in PATHS, f"{document.name}: {words}: {text}")

    def test_the_paths_lead_through_the_documents_that_a_newcomer_reads(self):
        found = {words[1] for document in DOCUMENTS for words, _ in blocks(document) if len(words) > 1}
        self.assertEqual(found, PATHS)


class Paths(ToolTest):
    """The vendor's and the user's path with the programs of this build; in fresh systems script/follow-docs goes."""

    def follow(self, path):
        script = "set -euo pipefail\n"
        for words, text in blocks(SOURCE_ROOT / "README.md"):
            if words[1:2] == [path]:
                script += text
        self.assertIn("\n", script)
        # Nothing is installed here.
        script = re.sub(r"(?m)^sudo .*$", "", script)
        process = subprocess.run(["bash", "-c", script], cwd=self.work, env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=200)
        self.assertEqual(process.returncode, 0, process.stdout.decode())

    @unittest.skipUnless(SETUP, "the wizard is not built")
    def test_the_vendors_path_and_then_the_users(self):
        tools = self.root / "tools"
        tools.mkdir()
        shutil.copy(TPK, tools / "tpk")
        shutil.copy(SETUP, tools / "setup")
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        shutil.copytree(SOURCE_ROOT / "examples/brook-ledger/files", self.work / "my-templates")
        self.follow("vendor")
        shutil.rmtree(self.work / "my-templates-setup")
        self.follow("user")
        self.tpk("verify", "my-templates-setup/quarn.tpk", "--against",
                 Path(self.environment["HOME"], ".quarn/Orbex/quarn/tmplts"), code=0)


if __name__ == "__main__":
    unittest.main()
