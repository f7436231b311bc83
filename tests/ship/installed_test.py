"""cmake --install: every component is complete, works from any prefix, and all tell one version."""
import gzip
import os
import plistlib
import re
import shutil
import subprocess
import unittest
from pathlib import Path

from support import SANITIZED, SOURCE_ROOT, ToolTest

BUILD = Path(os.environ["BUILD"])
CMAKE = os.environ["CMAKE"]
SETUP = os.environ.get("SETUP")


class Installed(ToolTest):
    def install(self, *components):
        prefix = self.root / "a prefix"
        for component in components:
            subprocess.run([CMAKE, "--install", BUILD, "--prefix", prefix, "--component", component],
                           stdout=subprocess.DEVNULL, check=True)
        return prefix, sorted(str(path.relative_to(prefix)) for path in prefix.rglob("*") if path.is_file())

    def run_tool(self, *command):
        return subprocess.run(command, cwd=self.work, env=self.environment, stdout=subprocess.PIPE, check=True,
                              timeout=120).stdout.decode()

    def test_the_tool_comes_with_its_page_and_completions(self):
        prefix, files = self.install("tpk")
        for name in ("bin/tpk", "share/man/man1/tpk.1.gz", "share/bash-completion/completions/tpk",
                     "share/fish/vendor_completions.d/tpk.fish", "share/doc/quarn-tpk/copyright",
                     "share/doc/quarn-tpk/changelog.gz"):
            self.assertIn(name, files)
        self.assertTrue([name for name in files if name.endswith("/_tpk")])
        self.assertNotIn("bin/quarn-setup", files)
        page = gzip.decompress((prefix / "share/man/man1/tpk.1.gz").read_bytes()).decode()
        self.assertIn('.SS "tpk bundle"', page)

    @unittest.skipUnless(SETUP, "the wizard is not built")
    def test_the_wizard_comes_with_launcher_entry_icons_and_page(self):
        prefix, files = self.install("setup")
        self.assertEqual(files, [
            "bin/quarn-setup", "libexec/quarn-setup/setup", "share/applications/quarn-setup.desktop",
            "share/doc/quarn-setup/changelog.gz", "share/doc/quarn-setup/copyright",
            "share/icons/hicolor/256x256/apps/quarn-setup.png", "share/icons/hicolor/scalable/apps/quarn-setup.svg",
            "share/man/man1/quarn-setup.1.gz"])
        entry = (prefix / "share/applications/quarn-setup.desktop").read_text()
        self.assertIn("\nExec=quarn-setup\n", entry)
        page = gzip.decompress((prefix / "share/man/man1/quarn-setup.1.gz").read_bytes())
        if shutil.which("groff"):
            process = subprocess.run(["groff", "-ww", "-man", "-Tutf8"], input=page, stdout=subprocess.DEVNULL,
                                     stderr=subprocess.PIPE)
            self.assertEqual(process.stderr, b"")

    @unittest.skipUnless(SETUP, "the wizard is not built")
    @unittest.skipIf(SANITIZED, "the toolkit's own leaks end the sanitized wizard with a status")
    def test_what_is_installed_bundles_and_installs(self):
        prefix, _ = self.install("tpk", "setup")
        example = SOURCE_ROOT / "examples/brook-ledger"
        self.run_tool(prefix / "bin/tpk", "bundle", "--manifest", example, "--target", "linux",
                      "--system-qt", "-o", "out")
        self.assertEqual((self.work / "out/setup").read_bytes(),
                         (prefix / "libexec/quarn-setup/setup").read_bytes())
        # A kit in the current directory, and one next to the installed wizard.
        target = self.root / "home/.quarn/Orbex/quarn/tmplts"
        shutil.copy(self.work / "out/quarn.tpk", self.work)
        for arguments in (["usecwd", "-S"], ["-S"]):
            self.run_tool(prefix / "bin/quarn-setup", *arguments)
            self.run_tool(prefix / "bin/tpk", "verify", "out/quarn.tpk", "--against", target)
            shutil.rmtree(self.root / "home/.quarn")
            shutil.rmtree(self.root / "home/.Orbex")
            shutil.copy(self.work / "quarn.tpk", prefix / "libexec/quarn-setup")

    def test_there_is_one_version(self):
        (version,) = re.findall(r"project\(QuarnSetup VERSION ([\d.]+)", (SOURCE_ROOT / "CMakeLists.txt").read_text())
        self.assertEqual(self.tpk("--version", code=0).out, f"tpk {version}\n")
        self.assertIn(f"\n## {version}\n", (SOURCE_ROOT / "CHANGELOG.md").read_text())
        self.assertIn(f'CPACK_PACKAGE_VERSION "{version}"', (BUILD / "CPackConfig.cmake").read_text())
        plist = BUILD / "bin/Setup.app/Contents/Info.plist"
        if plist.exists():
            information = plistlib.loads(plist.read_bytes())
            self.assertEqual((information["CFBundleShortVersionString"], information["CFBundleVersion"]),
                             (version, version))


if __name__ == "__main__":
    unittest.main()
