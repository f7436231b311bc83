"""The documents: what they name exists, and what they tell to type is what script/follow-docs executes."""
import itertools
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
BUILD = Path(os.environ["BUILD"])
ARCHITECTURE = SOURCE_ROOT / "docs/architecture.md"


def blocks(document):
    """The fenced blocks: (words after the fence, text)."""
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
        """Names of the tree in backquotes: those that begin with one of its directories."""
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


class Languages(unittest.TestCase):
    def test_the_readme_tells_in_how_many_the_wizard_speaks(self):
        """A file without texts of its own shows those of another language."""
        shown = set(re.findall(r"(?m)^QUARN_LANGUAGE\(\d+, \w+, (\w+)\)",
                               (SOURCE_ROOT / "l10n/languages.inc").read_text()))
        spoken = {name for name in shown if "QUARN_TEXT" in (SOURCE_ROOT / f"l10n/texts/{name}.inc").read_text()}
        told = re.search(r"in (\d+)\s+languages", prose(SOURCE_ROOT / "README.md"))
        self.assertEqual(int(told[1]), len(spoken))


def table(document, *head):
    """The rows of the table with this head."""
    lines = document.read_text().split("| " + " | ".join(head) + " |\n")[1].splitlines()
    rows = itertools.takewhile(lambda line: line.startswith("|"), lines[1:])
    return [[cell.strip() for cell in row.strip("|").split("|")] for row in rows]


def folders_in(text):
    return re.findall(r"`([a-z0-9/]+)/`", text)


def source_folders():
    """Those with sources of the programs."""
    for folder in sorted({path.parent.relative_to(SOURCE_ROOT) for suffix in ("cc", "h", "mm")
                          for path in SOURCE_ROOT.rglob("*." + suffix)}):
        if folder.parts[0] not in ("tests", "fuzz", "bench", "build", "dist"):
            yield folder


class House(unittest.TestCase):
    """The house that is drawn is the one that is built."""

    def setUp(self):
        lines = (BUILD / "house.txt").read_text().splitlines()
        self.built = {folder: links.split() for folder, links in (line.split(":") for line in lines)}
        self.told = {folders_in(folder)[0]: folders_in(links)
                     for folder, links in table(ARCHITECTURE, "directory", "links")}
        picture = blocks(ARCHITECTURE)[0][1]
        self.floors = {}
        number = 0
        for line in picture.splitlines():
            floor = re.match(r"floor (\d)", line)
            number = int(floor[1]) if floor else number
            self.floors.update(dict.fromkeys(re.findall(r"([a-z0-9/]+)/", line), number))

    def test_every_folder_links_what_the_document_tells(self):
        self.assertGreater(len(self.built), 6)
        for folder, links in self.built.items():
            self.assertIn(folder, self.told)
            self.assertEqual(sorted(self.told[folder]), links, folder)

    def test_every_folder_that_is_told_of_is_built_here_or_for_another_desktop(self):
        self.assertLessEqual(set(self.told) - set(self.built), {"wizard/qt", "wizard/mac"})

    def test_what_is_linked_lies_below(self):
        for folder, links in self.built.items():
            bridge = folder.startswith("wizard/")
            for link in links:
                if folder.startswith("tpk") and link.startswith("tpk"):
                    # One floor; its rooms are told of from the ground up.
                    order = list(self.told)
                    self.assertLess(order.index(link), order.index(folder), (folder, link))
                elif not (bridge and link == "wizard"):
                    self.assertLess(self.floors[link], self.floors[folder.removeprefix("wizard/")], (folder, link))

    def test_the_picture_has_every_source_folder(self):
        for folder in source_folders():
            self.assertTrue({str(folder), folder.name} & set(self.floors), folder)

    def test_every_source_folder_has_rules(self):
        named = set()
        folder = ""
        for first, files, _ in table(ARCHITECTURE, "directory", "files", "the rules in it"):
            folder = folders_in(first)[0] if first else folder
            named |= {folder, *(f"{folder}/{below}" for below in folders_in(files))}
        self.assertLessEqual({str(folder) for folder in source_folders()}, named)


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
