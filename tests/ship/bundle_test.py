"""tpk bundle: what is in the folder and the archive, and that they start."""
import hashlib
import os
import re
import shutil
import subprocess
import tarfile
import time
import unittest

from support import SOURCE_ROOT, SANITIZED, TPK, ToolTest

SETUP = os.environ.get("SETUP")
EXAMPLE = SOURCE_ROOT / "examples/brook-ledger/kit.toml"
LINUX = ["LICENSE", "README.txt", "quarn.tpk", "setup", "setup.desktop", "start-setup"]
MAC = ["LICENSE", "README.txt", "Setup.app", "quarn.tpk", "start-setup"]
ELF = b"\x7fELF\x02\x01\x01"
MACH_O = b"\xcf\xfa\xed\xfe\x07\x00\x00\x01"


class BundleTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.wizard = self.write("wizard/setup", ELF + b"linux")
        self.wizard.chmod(0o700)
        self.program = self.write("wizard/Setup.app/Contents/MacOS/setup", MACH_O)
        self.program.chmod(0o700)
        self.write("wizard/Setup.app/Contents/Info.plist", b"<plist/>").chmod(0o600)
        (self.work / "wizard/Setup.app/Contents/PkgInfo").symlink_to("Info.plist")
        self.write("made/files/d/a.txt", b"template", time=1600000000)
        self.manifest = self.write("made/kit.toml", """
format = 1
[kit]
root = "files"
[[product]]
language = "en"
name = "Back\\\\slash \\"and\\" co"
provider = "Anna's"
[[product]]
language = "de"
name = "Größe 100%"
""")

    def bundle(self, *more, target="linux", place="out", manifest=None, code=0, **options):
        wizard = {"linux": "wizard/setup", "macos": "wizard/Setup.app"}[target]
        arguments = [] if "--wizard" in more else ["--wizard", wizard]
        return self.tpk("bundle", "--manifest", manifest or self.manifest, "--target", target, "-o", place,
                        *arguments, *more, code=code, **options)

    def names(self, place="out"):
        return sorted(os.listdir(self.work / place))

    def members(self, place="out"):
        with tarfile.open(self.work / f"{place}.tar.gz") as archive:
            return archive.getmembers()


class Bundles(BundleTest):
    def test_a_linux_bundle_has_the_wizard_the_kit_and_what_starts_it(self):
        run = self.bundle()
        self.assertEqual(self.names(), sorted(LINUX))
        out = self.work / "out"
        self.assertEqual((out / "setup").read_bytes(), ELF + b"linux")
        self.assertEqual((out / "start-setup").read_bytes(), (SOURCE_ROOT / "packaging/start-setup").read_bytes())
        self.assertEqual((out / "LICENSE").read_bytes(), (SOURCE_ROOT / "LICENSE").read_bytes())
        self.assertIn("d/a.txt", self.tpk("list", "out/quarn.tpk", code=0).out)
        self.assertIn("Anna's", (out / "README.txt").read_text())
        self.assertIn("out and out.tar.gz", run.out)
        self.assertEqual(run.err, "")

    def test_a_wizard_that_is_given_by_a_link_is_put_in_itself(self):
        for target, name in (("linux", "setup"), ("macos", "Setup.app")):
            (self.work / f"{target}-link").symlink_to(f"wizard/{name}")
            self.bundle("--wizard", f"{target}-link", target=target, place=target)
            self.assertFalse((self.work / target / name).is_symlink())
            self.assertFalse(self.members(target)[self.names(target).index(name) + 1].issym())
        self.assertEqual((self.work / "linux/setup").read_bytes(), ELF + b"linux")

    def test_a_macos_bundle_has_the_application_with_the_kit_beside_it(self):
        self.bundle(target="macos")
        self.assertEqual(self.names(), sorted(MAC))
        app = self.work / "out/Setup.app/Contents"
        self.assertEqual((app / "MacOS/setup").read_bytes(), MACH_O)
        self.assertEqual(os.readlink(app / "PkgInfo"), "Info.plist")

    def test_the_application_may_be_named_with_a_separator(self):
        self.bundle("--wizard", "wizard/Setup.app/", target="macos")
        self.assertTrue((self.work / "out/Setup.app/Contents/MacOS/setup").exists())

    def test_the_archive_is_the_folder_sorted_without_owners(self):
        for target in ("linux", "macos"):
            self.bundle(target=target, place=target)
            names = [member.name for member in self.members(target)]
            self.assertEqual(names, sorted(names))
            there = [target] + [f"{target}/{path.relative_to(self.work / target)}"
                                for path in (self.work / target).rglob("*")]
            self.assertEqual(names, sorted(there))
            for member in self.members(target):
                self.assertEqual((member.uid, member.gid, member.uname, member.gname), (0, 0, "", ""))
                # That of the newest file of the kit.
                self.assertEqual(member.mtime, 1600000000)
                mode = 0o755 if member.isdir() or member.name.endswith(("setup", "setup.desktop")) else 0o644
                self.assertEqual(member.mode, 0o777 if member.issym() else mode, member.name)

    def test_unpacking_gives_the_folder_back(self):
        self.bundle(target="macos")
        before = self.tree("out")
        subprocess.run(["tar", "xzf", "../out.tar.gz"], cwd=(self.work / "wizard"), check=True)
        self.assertEqual(self.tree("wizard/out"), before)
        self.assertEqual(os.readlink(self.work / "wizard/out/Setup.app/Contents/PkgInfo"), "Info.plist")

    def test_the_same_input_gives_the_same_bytes_wherever_and_whenever(self):
        self.bundle()
        first = hashlib.sha256((self.work / "out.tar.gz").read_bytes()).digest()
        shutil.copytree(self.work / "made", self.work / "other/made")
        os.utime(self.work / "other/made/files/d/a.txt", (1600000000, 1600000000))
        (self.work / "other/made/files/d/a.txt").chmod(0o600)
        time.sleep(1.1)
        old = os.umask(0o077)
        self.bundle(manifest="other/made/kit.toml", place="other/out")
        os.umask(old)
        self.assertEqual(hashlib.sha256((self.work / "other/out.tar.gz").read_bytes()).digest(), first)
        self.assertEqual((self.work / "out.tar.gz").read_bytes()[4:8], bytes(4), "a time in the head of gzip")

    def test_source_date_epoch_is_the_time_of_everything(self):
        self.environment["SOURCE_DATE_EPOCH"] = "1500000000"
        self.bundle()
        self.assertEqual({member.mtime for member in self.members()}, {1500000000})
        for path in [self.work / "out", *(self.work / "out").rglob("*")]:
            self.assertEqual(int(path.lstat().st_mtime), 1500000000, path)
        self.environment["SOURCE_DATE_EPOCH"] = "soon"
        self.assertIn("SOURCE_DATE_EPOCH", self.bundle(place="other", code=1).err)
        self.assertFalse((self.work / "other").exists())

    def test_a_time_beyond_what_an_archive_holds_becomes_its_last(self):
        for last in (2**33 - 1, 2**33, 253402300799):
            self.environment["SOURCE_DATE_EPOCH"] = str(last)
            self.bundle("--force")
            self.assertEqual({member.mtime for member in self.members()}, {2**33 - 1}, last)

    def test_nothing_is_replaced_without_force(self):
        self.write("out/mine")
        self.assertIn("--force replaces it if it is a bundle", self.bundle(code=1).err)
        self.assertEqual(self.names(), ["mine"])
        shutil.rmtree(self.work / "out")
        self.write("out.tar.gz", b"mine")
        self.assertIn("out.tar.gz exists already", self.bundle(code=1).err)
        self.assertFalse((self.work / "out").exists())

    def test_an_empty_folder_is_taken(self):
        (self.work / "out").mkdir()
        self.bundle()
        self.assertEqual(self.names(), sorted(LINUX))

    def test_force_replaces_a_bundle_as_a_whole(self):
        self.bundle(target="macos")
        self.bundle("--force")
        self.assertEqual(self.names(), sorted(LINUX))
        self.assertIn("out/setup", [member.name for member in self.members()])

    def test_force_replaces_nothing_but_a_bundle(self):
        """A mistyped folder, a home for example, is never removed."""
        self.bundle()
        self.write("out/letter", b"mine")
        self.assertIn("holds more than a bundle", self.bundle("--force", code=1).err)
        self.assertEqual((self.work / "out/letter").read_bytes(), b"mine")
        self.write("half/setup", b"mine")
        self.assertIn("holds more than a bundle", self.bundle("--force", place="half", code=1).err)
        self.write("file", b"mine")
        self.assertIn("is not a folder", self.bundle("--force", place="file", code=3).err)
        self.assertIn("no folder to make", self.bundle(place="/", code=1).err)

    def test_a_bundle_is_never_made_among_its_own_files(self):
        for place in ("made/files/out", "made/files/b/../out"):
            self.assertIn("lies in the folder that the kit is made from", self.bundle(place=place, code=1).err)
        self.assertIn("lies in the application", self.bundle(target="macos", place="wizard/Setup.app/out", code=1).err)
        self.bundle(place="made/files-out")

    def test_dry_run_looks_at_everything_and_writes_nothing(self):
        before = self.tree(".")
        run = self.bundle("--dry-run", place="new/deep/out")
        self.assertIn("would bundle", run.out)
        self.assertEqual(self.tree("."), before)
        self.write("out/mine")
        self.bundle("--dry-run", code=1)

    def test_dry_run_needs_no_temporary_directory(self):
        self.environment["TMPDIR"] = str(self.root / "nowhere")
        self.bundle("--dry-run")

    def test_json_ends_in_one_result(self):
        line = self.json("bundle", "--manifest", self.manifest, "--target", "linux", "-o", "out",
                            "--wizard", "wizard/setup")[-1]
        self.assertEqual((line["verb"], line["target"], line["files"], line["dry_run"]), ("bundle", "linux", 1, False))
        self.assertEqual(line["archive_bytes"], (self.work / "out.tar.gz").stat().st_size)
        self.assertEqual(line["kit_bytes"], (self.work / "out/quarn.tpk").stat().st_size)

    def test_quiet_prints_nothing(self):
        run = self.bundle("--quiet")
        self.assertEqual((run.out, run.err), ("", ""))

    def test_a_manifest_may_be_named_by_its_folder_and_must_be_there(self):
        self.bundle(manifest="made")
        self.assertIn("kit.toml", self.bundle(manifest="wizard", place="b", code=3).err)
        self.assertFalse((self.work / "b").exists())

    def test_strict_refuses_warnings_and_leaves_nothing(self):
        self.write("made/files/empty.txt", b"")
        self.bundle("--strict", code=2)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "wizard"])
        self.bundle()

    def test_a_wizard_that_is_none_is_told(self):
        for target, wizard in (("linux", "wizard"), ("linux", "nowhere"), ("linux", "made/kit.toml"),
                               ("macos", "wizard/setup"), ("macos", "wizard")):
            run = self.bundle("--wizard", wizard, target=target, code=3)
            self.assertIn(f"{wizard} is no wizard for {target}", run.err)
        self.assertFalse((self.work / "out").exists())

    def test_the_wizard_is_looked_for_beside_the_tool_and_where_both_are_installed(self):
        tool = self.work / "prefix/bin/tpk"
        tool.parent.mkdir(parents=True)
        shutil.copy(TPK, tool)

        def run(place):
            return subprocess.run([tool, "bundle", "--manifest", self.manifest, "--target", "linux", "-o", place],
                                  cwd=self.work, env=self.environment, stderr=subprocess.PIPE,
                                  stdout=subprocess.PIPE)
        process = run("none")
        self.assertEqual(process.returncode, 1)
        self.assertIn("there is no setup in", process.stderr.decode())
        self.assertIn("--wizard tells where it is", process.stderr.decode())
        # Where both are installed, one beside the tool may be anybody's.
        for place, path in (("beside", "prefix/bin/setup"), ("installed", "prefix/libexec/quarn-setup/setup")):
            self.write(path, ELF + place.encode()).chmod(0o755)
            self.assertEqual(run(place).returncode, 0)
            self.assertEqual((self.work / place / "setup").read_bytes(), ELF + place.encode())

    def test_a_program_for_another_system_is_told(self):
        run = self.bundle("--wizard", "wizard/Setup.app/Contents/MacOS/setup")
        self.assertIn("is a program for macos: the bundle will not start on linux", run.err)

    def test_a_name_too_long_for_an_archive_is_told_and_nothing_is_left(self):
        self.write("wizard/Setup.app/" + "x" * 120, b"")
        self.assertIn("is too long a path", self.bundle(target="macos", code=1).err)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "wizard"])

    def test_long_paths_go_into_the_archive_as_far_as_it_holds_them(self):
        name = "/".join(["n" * 60, "m" * 60, "o" * 90])
        self.write("wizard/Setup.app/" + name, b"deep")
        self.bundle(target="macos")
        subprocess.run(["tar", "xzf", "../out.tar.gz"], cwd=(self.work / "wizard"), check=True)
        self.assertEqual((self.work / "wizard/out/Setup.app" / name).read_bytes(), b"deep")

    def test_a_full_disk_leaves_nothing(self):
        limited = ["prlimit", "--fsize=200000"]
        if shutil.which(limited[0]) is None:
            self.skipTest("no prlimit here")
        self.wizard.write_bytes(ELF + os.urandom(150000))
        self.write("made/files/b.bin", os.urandom(150000))
        process = subprocess.run([*limited, TPK, "bundle", "--manifest", self.manifest, "--target", "linux",
                                  "-o", "out", "--wizard", "wizard/setup"], cwd=self.work, env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(process.returncode, 3, process.stderr)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "wizard"])

    def test_a_signal_leaves_nothing(self):
        self.write("made/files/big.bin", os.urandom(30_000_000))
        process = self.start("bundle", "--manifest", self.manifest, "--target", "linux", "-o", "out",
                             "--wizard", "wizard/setup")
        while not list(self.work.glob(".tpk-*")):
            time.sleep(0.01)
        process.terminate()
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 4)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "wizard"])


class Entry(BundleTest):
    """setup.desktop: starts the launcher next to it."""

    def setUp(self):
        super().setUp()
        self.bundle()
        starter = self.work / "out/start-setup"
        starter.write_text('#!/bin/sh\nprintf "%s\\n" "$0" >"$SEEN.part"; mv "$SEEN.part" "$SEEN"\n')
        self.seen = self.root / "seen"
        self.environment["SEEN"] = str(self.seen)

    def moved(self):
        """The folder under one name after the other."""
        folder = self.work / "out"
        for name in ("plain", "two words", "$HOME `id` \"quoted\" it's", "100% größe", "back\\slash"):
            folder = folder.rename(self.work / name)
            yield folder

    def command(self, folder, location):
        """The command line as a desktop reads it."""
        (line,) = [line for line in (folder / "setup.desktop").read_text().splitlines() if line.startswith("Exec=")]
        value = re.sub(r"\\(.)", r"\1", line[5:])
        words = re.findall(r'"((?:[^"\\]|\\.)*)"|(\S+)', value)
        arguments = [re.sub(r"\\(.)", r"\1", quoted) or plain for quoted, plain in words]
        return [location if argument == "%k" else argument.replace("%%", "%") for argument in arguments]

    def test_it_starts_by_its_own_location(self):
        for folder in self.moved():
            for location in (folder / "setup.desktop", "setup.desktop", (folder / "setup.desktop").as_uri()):
                subprocess.run(self.command(folder, str(location)), cwd=folder, env=self.environment, check=True)
                self.wait_for_start(folder)

    def wait_for_start(self, folder):
        for _ in range(200):
            if self.seen.exists():
                break
            time.sleep(0.05)
        self.assertEqual(os.path.realpath(folder / self.seen.read_text()[:-1]), f"{folder}/start-setup")
        os.remove(self.seen)

    def test_a_file_manager_starts_it(self):
        launch = ["/usr/bin/python3", "-c", "import sys; from gi.repository import Gio; "
                  "Gio.DesktopAppInfo.new_from_filename(sys.argv[1]).launch([], None)"]
        if subprocess.run([*launch[:2], "from gi.repository import Gio"], stderr=subprocess.DEVNULL).returncode:
            self.skipTest("no python3-gi here")
        for folder in self.moved():
            subprocess.run([*launch, folder / "setup.desktop"], cwd="/", env=self.environment, check=True)
            self.wait_for_start(folder)

    def test_without_its_location_it_starts_in_the_current_folder(self):
        if shutil.which("gio") is None:
            self.skipTest("no gio here")
        for folder in self.moved():
            subprocess.run(["gio", "launch", "setup.desktop"], cwd=folder, env=self.environment, check=True)
            self.wait_for_start(folder)

    def test_its_name_is_the_products_in_every_language(self):
        entry = (self.work / "out/setup.desktop").read_text()
        self.assertIn('\nName=Back\\\\slash "and" co\n', entry)
        self.assertIn("\nName[de]=Größe 100%\n", entry)

    def test_it_is_a_valid_entry(self):
        if shutil.which("desktop-file-validate") is None:
            self.skipTest("no desktop-file-validate here")
        process = subprocess.run(["desktop-file-validate", self.work / "out/setup.desktop"], stdout=subprocess.PIPE)
        self.assertEqual((process.stdout, process.returncode), (b"", 0))


@unittest.skipUnless(SETUP, "the wizard is not built")
@unittest.skipIf(SANITIZED, "the toolkit's own leaks end the sanitized wizard with a status")
class Wizard(ToolTest):
    def test_an_unpacked_archive_installs_silently(self):
        self.tpk("bundle", "--manifest", EXAMPLE, "--target", "linux", "-o", "brook", "--wizard", SETUP, code=0)
        (self.work / "elsewhere").mkdir()
        subprocess.run(["tar", "xzf", "../brook.tar.gz"], cwd=self.work / "elsewhere", check=True)
        process = subprocess.run([self.work / "elsewhere/brook/start-setup", "-S"], cwd="/", env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
        self.assertEqual((process.returncode, process.stdout), (0, b""))
        recorded = (self.root / "home/.Orbex/qlaunch/qlaunch.cfg").read_text()
        target = recorded.split("=", 1)[1].splitlines()[0]
        self.assertTrue(target.startswith(str(self.root / "home")), recorded)
        self.tpk("verify", "brook/quarn.tpk", "--against", target, code=0)


if __name__ == "__main__":
    unittest.main()
