"""tpk bundle: what is in the folder and the archive, and that they start."""
import os
import re
import shutil
import signal
import subprocess
import sys
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
        arguments += ["--system-qt"] if target == "linux" else []
        return self.tpk("bundle", "--manifest", manifest or self.manifest, "--target", target, "-o", place,
                        *arguments, *more, code=code, **options)

    def names(self, place="out"):
        return sorted(os.listdir(self.work / place))

    def archive(self, place="out"):
        """Either kind; there is one."""
        found = [path for path in (self.work / f"{place}.tar.xz", self.work / f"{place}.tar.gz") if path.exists()]
        self.assertEqual(len(found), 1, place)
        return found[0]

    def members(self, place="out"):
        with tarfile.open(self.archive(place)) as archive:
            return archive.getmembers()

    def unpack(self, archive, place):
        subprocess.run(["tar", "xf", archive], cwd=self.work / place, check=True)


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
        self.assertIn("out and out.tar.xz", run.out)
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
        self.unpack("../out.tar.gz", "wizard")
        self.assertEqual(self.tree("wizard/out"), before)
        self.assertEqual(os.readlink(self.work / "wizard/out/Setup.app/Contents/PkgInfo"), "Info.plist")

    def test_the_same_input_gives_the_same_bytes_wherever_and_whenever(self):
        shutil.copytree(self.work / "made", self.work / "other/made")
        os.utime(self.work / "other/made/files/d/a.txt", (1600000000, 1600000000))
        (self.work / "other/made/files/d/a.txt").chmod(0o600)
        for target in ("linux", "macos"):
            self.bundle(target=target, place=target)
            time.sleep(1.1)
            old = os.umask(0o077)
            self.bundle(target=target, manifest="other/made/kit.toml", place=f"other/{target}")
            os.umask(old)
            self.assertEqual(self.archive(target).read_bytes(), self.archive(f"other/{target}").read_bytes(), target)
        self.assertEqual(self.archive("macos").read_bytes()[4:8], bytes(4), "a time in the head of gzip")

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
        self.write("out.tar.xz", b"mine")
        self.assertIn("out.tar.xz exists already", self.bundle(code=1).err)
        self.assertFalse((self.work / "out").exists())

    def test_an_empty_folder_is_taken(self):
        (self.work / "out").mkdir()
        self.bundle()
        self.assertEqual(self.names(), sorted(LINUX))

    def test_force_replaces_a_bundle_as_a_whole(self):
        self.bundle(target="macos")
        self.bundle("--force")
        self.assertEqual(self.names(), sorted(LINUX))
        with tarfile.open(self.work / "out.tar.xz") as archive:
            self.assertIn("out/setup", archive.getnames())

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
                         "--wizard", "wizard/setup", "--system-qt")[-1]
        self.assertEqual((line["verb"], line["target"], line["files"], line["dry_run"]), ("bundle", "linux", 1, False))
        self.assertEqual(line["archive_bytes"], (self.work / "out.tar.xz").stat().st_size)
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
            return subprocess.run([tool, "bundle", "--manifest", self.manifest, "--target", "linux", "-o", place,
                                   "--system-qt"],
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
        self.unpack("../out.tar.gz", "wizard")
        self.assertEqual((self.work / "wizard/out/Setup.app" / name).read_bytes(), b"deep")

    def test_a_full_disk_leaves_nothing(self):
        limited = ["prlimit", "--fsize=200000"]
        if shutil.which(limited[0]) is None:
            self.skipTest("no prlimit here")
        self.wizard.write_bytes(ELF + os.urandom(150000))
        self.write("made/files/b.bin", os.urandom(150000))
        process = subprocess.run([*limited, TPK, "bundle", "--manifest", self.manifest, "--target", "linux",
                                  "-o", "out", "--wizard", "wizard/setup", "--system-qt"], cwd=self.work, env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual(process.returncode, 3, process.stderr)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "wizard"])

    def test_a_signal_leaves_nothing(self):
        self.write("made/files/big.bin", os.urandom(30_000_000))
        process = self.start("bundle", "--manifest", self.manifest, "--target", "linux", "-o", "out",
                             "--wizard", "wizard/setup", "--system-qt")
        while not list(self.work.glob(".tpk-*")):
            time.sleep(0.01)
        process.terminate()
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 4)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "wizard"])


def build(folder, name, text, *options):
    """Compiles a program or library."""
    source = folder / f"{name}.cc"
    source.write_text(text)
    subprocess.run(["c++", source, "-o", folder / name, *options], cwd=folder, check=True)
    os.remove(source)


@unittest.skipUnless(sys.platform == "linux", "for programs of Linux")
class WithQt(BundleTest):
    """Bundles that bring Qt along; Qt here is a library of a few lines, with a friend and plugins. Its
    version is none that this machine may have."""

    def setUp(self):
        super().setUp()
        self.qt = self.work / "qt"
        self.version("system")
        plugins = self.qt / "qt6/plugins/platforms"
        plugins.mkdir(parents=True)
        for name in ("libqxcb.so", "libqoffscreen.so", "libqeglfs.so"):
            build(plugins, name, 'extern "C" int Friend(); int Plugin() { return Friend(); }', "-shared", "-fPIC",
                  f"-L{self.qt}", "-l:libfriend.so.1", f"-Wl,-rpath,{self.qt}")
        build(self.work / "wizard", "setup", """
            #include <cstdio>
            #include <cstdlib>
            extern "C" const char* QtVersion();
            int main(int count, char** arguments) {
              const char* seen = std::getenv("SEEN");
              std::FILE* file = std::fopen(seen, "a");
              const char* plugins = std::getenv("QT_PLUGIN_PATH");
              std::fprintf(file, "%s %d %s\\n", QtVersion(), count, plugins == nullptr ? "none" : plugins);
              return std::fclose(file);
            }""", f"-L{self.qt}", "-l:libQt6Core.so.99", f"-Wl,--enable-new-dtags,-rpath,{self.qt}")
        self.seen = self.root / "seen"
        self.environment.update(SEEN=str(self.seen))

    def version(self, text, tag="Qt_6.4"):
        """Makes the system's Qt."""
        self.qt.mkdir(exist_ok=True)
        build(self.qt, "libfriend.so.1", 'extern "C" int Friend() { return 1; }', "-shared", "-fPIC",
              "-Wl,-soname,libfriend.so.1")
        (self.qt / "versions").write_text(f"{tag} {{ global: QtVersion; }};")
        build(self.qt, "libQt6Core.so.99",
              f'extern "C" int Friend(); extern "C" const char* QtVersion() {{ return Friend() ? "{text}" : ""; }}',
              "-shared", "-fPIC", "-Wl,-soname,libQt6Core.so.99", "-Wl,--version-script=versions",
              f"-L{self.qt}", "-l:libfriend.so.1", f"-Wl,-rpath,{self.qt}")

    def bundle(self, *more, code=0, **options):
        return self.tpk("bundle", "--manifest", self.manifest, "--target", "linux", "-o", "out", "--wizard",
                        "wizard/setup", *more, code=code, **options)

    def start(self, *arguments, **options):
        if arguments[:1] == ("bundle",):
            return super().start(*arguments, **options)
        return subprocess.Popen(arguments, cwd=self.work, env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def run_wizard(self, *command, code=0):
        process = self.start(*command)
        out, err = process.communicate(timeout=120)
        self.assertEqual(process.returncode, code, (out, err))
        if not self.seen.exists():
            return err.decode()
        text = self.seen.read_text()
        os.remove(self.seen)
        return text

    def test_it_has_qt_its_plugins_and_its_friends_and_their_licences(self):
        run = self.bundle()
        self.assertEqual(sorted(self.names()), sorted([*LINUX, "lib", "licences", "plugins"]))
        self.assertEqual(sorted(self.names("out/lib")), ["libQt6Core.so.99", "libfriend.so.1"])
        self.assertEqual(sorted(self.names("out/plugins/platforms")), ["libqoffscreen.so", "libqxcb.so"])
        for name in ("GPL-3.txt", "LGPL-3.txt"):
            self.assertEqual((self.work / "out/licences" / name).read_bytes(),
                             (SOURCE_ROOT / "packaging/licences" / name).read_bytes())
        notice = (self.work / "out/licences/NOTICE.txt").read_text()
        self.assertIn("lib/libfriend.so.1\n    of no package\n", notice)
        self.assertIn("no licence is known of lib/libfriend.so.1", run.err)
        self.assertIn("licences/NOTICE.txt", (self.work / "out/README.txt").read_text())

    def test_system_qt_leaves_it_out(self):
        self.bundle("--system-qt")
        self.assertEqual(self.names(), sorted(LINUX))
        self.assertIn("libqt6widgets6", (self.work / "out/README.txt").read_text())

    def test_the_same_input_gives_the_same_bytes(self):
        self.bundle("--single-file")
        first = [(self.work / f"out{end}").read_bytes() for end in (".tar.xz", ".run")]
        time.sleep(1.1)
        self.bundle("--single-file", "--force")
        self.assertEqual([(self.work / f"out{end}").read_bytes() for end in (".tar.xz", ".run")], first)

    def test_a_program_without_qt_or_a_half_qt_is_refused(self):
        os.remove(self.qt / "qt6/plugins/platforms/libqxcb.so")
        self.assertIn("Qt has no plugin platforms/libqxcb.so", self.bundle(code=3).err)
        os.remove(self.qt / "libfriend.so.1")
        self.assertIn("libqxcb.so", self.bundle(code=3).err)
        build(self.work / "wizard", "setup", "int main() {}")
        self.assertIn("does not use Qt 6", self.bundle(code=3).err)
        (self.work / "wizard/setup").write_text("#!/bin/sh\n")
        self.assertIn("is no program or library", self.bundle(code=3).err)
        self.assertEqual(sorted(os.listdir(self.work)), ["made", "qt", "wizard"])

    def test_a_missing_friend_is_named(self):
        os.remove(self.qt / "libfriend.so.1")
        self.assertIn("libfriend.so.1 is needed and not on this system", self.bundle(code=3).err)

    def test_the_systems_qt_is_taken_where_it_will_do(self):
        self.bundle()
        self.assertEqual(self.run_wizard("out/start-setup", "-S"), "system 2 none\n")

    def test_the_bundles_qt_is_taken_where_the_systems_will_not_do(self):
        self.version("bundled")
        self.bundle()
        out = (self.work / "out").rename(self.work / "a: $HOME; b")
        command = [f"{out}/start-setup"]

        def expect(version):
            seen = self.run_wizard(*command)
            self.assertTrue(seen.startswith(version), seen)
            self.assertEqual("none" in seen, version == "system", seen)
        self.version("system")
        expect("system")
        self.version("system", tag="Qt_6.3")  # older
        expect("bundled")
        self.version("system")
        os.remove(self.qt / "libfriend.so.1")  # half there
        expect("bundled")
        self.version("system")
        plugin = self.qt / "qt6/plugins/platforms/libqoffscreen.so"
        plugin.rename(self.work / "kept")  # no plugin for where it is started
        expect("bundled")
        self.environment["DISPLAY"] = ":99"
        expect("system")
        # A plugin that lacks a friend of its own.
        build(plugin.parent, "libgone.so", "int Gone() { return 1; }", "-shared", "-fPIC")
        build(plugin.parent, "libqxcb.so", "int Gone(); int Plugin() { return Gone(); }", "-shared", "-fPIC",
              plugin.parent / "libgone.so", f"-Wl,-rpath,{plugin.parent}")
        expect("system")
        os.remove(plugin.parent / "libgone.so")
        expect("bundled")
        shutil.rmtree(self.qt)  # nothing at all
        expect("bundled")
        os.remove(out / "lib/libfriend.so.1")
        err = self.run_wizard(*command, code=127)
        self.assertIn("libfriend.so.1 => not found", err)
        self.assertIn("made for newer systems", err)

    def test_what_the_wizard_opens_gets_the_users_own_variables_back(self):
        self.version("bundled")
        self.bundle()
        shutil.rmtree(self.qt)
        tools = self.root / "tools"
        tools.mkdir()
        (tools / "xdg-open").write_text('#!/bin/sh\necho "${LD_LIBRARY_PATH-none} ${QT_PLUGIN_PATH-none}" >"$SEEN.part"'
                                        '; mv "$SEEN.part" "$SEEN"\n')
        (tools / "xdg-open").chmod(0o755)
        shutil.copy(self.work / "out/setup", self.work / "out/old")
        build(self.work / "out", "setup", '#include <cstdlib>\nint main() { return std::system("open x"); }',
              f"-L{self.work}/out/lib", "-Wl,--no-as-needed", "-l:libQt6Core.so.99", "-l:libfriend.so.1")
        self.environment["PATH"] = f"{tools}:{self.environment['PATH']}"
        for own, seen in ((None, "none none\n"), ("/a b:/it's", "/a b:/it's none\n")):
            if own:
                self.environment["LD_LIBRARY_PATH"] = own
            process = self.start("out/start-setup")
            process.communicate(timeout=60)
            for _ in range(200):
                if self.seen.exists():
                    break
                time.sleep(0.05)
            self.assertEqual(self.seen.read_text(), seen)
            os.remove(self.seen)

    # --- One file -------------------------------------------------------------------------------

    def single(self, *more):
        self.bundle("--single-file", *more)
        shutil.rmtree(self.qt)
        return self.work / "out.run"

    def test_one_file_is_a_script_with_the_archive_after_it(self):
        run = self.single()
        self.assertTrue(run.read_bytes().startswith(b"#!/bin/sh\n"))
        self.assertTrue(run.read_bytes().endswith((self.work / "out.tar.xz").read_bytes()))
        self.assertEqual(run.stat().st_mode & 0o7777, 0o755)

    def test_it_starts_the_wizard_and_leaves_nothing(self):
        run = self.single()
        seen = self.run_wizard(run, "-S", "two words")
        self.assertTrue(seen.startswith("system 3 "), seen)
        self.assertEqual(os.listdir(self.root / "tmp"), [])

    def test_it_ends_as_the_wizard_ends(self):
        run = self.single()
        os.environ.pop("SEEN", None)
        del self.environment["SEEN"]  # the wizard crashes then
        process = self.start(run)
        process.communicate(timeout=60)
        self.assertEqual(process.returncode, 139)
        self.assertEqual(os.listdir(self.root / "tmp"), [])

    def test_a_signal_ends_it_and_leaves_nothing(self):
        build(self.work / "wizard", "setup", """
            #include <cstdio>
            #include <cstdlib>
            #include <unistd.h>
            extern "C" const char* QtVersion();
            int main() {
              std::fputs(QtVersion(), std::fopen(std::getenv("SEEN"), "w"));
              std::fflush(nullptr);
              for (;;) pause();
            }""", f"-L{self.qt}", "-l:libQt6Core.so.99", f"-Wl,--enable-new-dtags,-rpath,{self.qt}")
        run = self.single()
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            process = self.start(run)
            for _ in range(600):
                if self.seen.exists() and self.seen.stat().st_size:
                    break
                time.sleep(0.05)
            process.send_signal(number)
            _, err = process.communicate(timeout=60)
            self.assertEqual(process.returncode, -number, err)
            self.assertEqual(os.listdir(self.root / "tmp"), [], number)
            os.remove(self.seen)

    def test_list_verify_and_extract_start_nothing(self):
        run = self.single()
        process = self.start(run, "--list")
        self.assertIn("out/lib/libQt6Core.so.99", process.communicate()[0].decode())
        self.assertEqual(self.start(run, "--verify").communicate(), (b"out.run: as it was made\n", b""))
        (self.work / "into").mkdir()
        self.assertEqual(self.start(run, "--extract", "into").communicate(), (b"", b""))
        self.assertEqual(os.listdir(self.work / "into"), ["out"])
        self.assertEqual(self.tree("into/out"), self.tree("out"))
        for arguments, words in ((["--extract", "into"], b"exists already"), (["--extract", "nowhere"], b"wants a folder"),
                                 (["--extract"], b"wants a folder")):
            self.assertIn(words, self.start(run, *arguments).communicate()[1])
        self.assertIn(b"--extract DIR", self.start(run, "--help").communicate()[0])
        self.assertFalse(self.seen.exists())
        self.assertEqual(os.listdir(self.work / "into"), ["out"])

    def test_a_damaged_file_starts_nothing(self):
        run = self.single()
        whole = run.read_bytes()
        for damaged in (whole[:-1], whole + b"x", whole[:-5000] + b"\0" + whole[-4999:]):
            run.write_bytes(damaged)
            for arguments in ([], ["-S"], ["--verify"], ["--extract", "."]):
                process = self.start(run, *arguments)
                self.assertIn(b"This file is damaged", process.communicate()[1])
                self.assertEqual(process.returncode, 126)
        self.assertFalse(self.seen.exists())
        self.assertEqual(os.listdir(self.root / "tmp"), [])

    def test_any_name_of_a_bundle_will_do(self):
        for name in ("it's", "$(touch mine)", "@sum@ @bundle@", "two\nlines"):
            self.tpk("bundle", "--manifest", self.manifest, "--target", "linux", "-o", name, "--wizard", "wizard/setup",
                     "--single-file", code=0)
            seen = self.run_wizard(self.work / f"{name}.run")
            self.assertTrue(seen.startswith("system 1 "), seen)
        self.assertFalse((self.work / "mine").exists())

    def test_it_is_for_linux_alone_and_replaces_nothing_without_force(self):
        self.write("out.run", b"mine")
        self.assertIn("out.run exists already", self.bundle("--single-file", code=1).err)
        self.assertFalse((self.work / "out").exists())
        self.assertEqual(self.bundle("--single-file", "--force", "--json").lines()[-1]["single_file"],
                         str(self.work / "out.run"))
        run = self.tpk("bundle", "--manifest", self.manifest, "--target", "macos", "-o", "mac", "--wizard",
                       "wizard/Setup.app", "--single-file", code=1)
        self.assertIn("--single-file is for linux alone", run.err)

    def test_both_scripts_complain_in_the_same_way(self):
        scripts = [(SOURCE_ROOT / "packaging" / name).read_text() for name in ("start-setup", "single-file")]
        functions = [re.search(r"^# complain <text>.*?^}$", text, re.M | re.S)[0] for text in scripts]
        self.assertEqual(*functions)


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
        self.tpk("bundle", "--manifest", EXAMPLE, "--target", "linux", "-o", "brook", "--wizard", SETUP, "--system-qt",
                 code=0)
        (self.work / "elsewhere").mkdir()
        subprocess.run(["tar", "xf", "../brook.tar.xz"], cwd=self.work / "elsewhere", check=True)
        process = subprocess.run([self.work / "elsewhere/brook/start-setup", "-S"], cwd="/", env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
        self.assertEqual((process.returncode, process.stdout), (0, b""))
        recorded = (self.root / "home/.Orbex/qlaunch/qlaunch.cfg").read_text()
        target = recorded.split("=", 1)[1].splitlines()[0]
        self.assertTrue(target.startswith(str(self.root / "home")), recorded)
        self.tpk("verify", "brook/quarn.tpk", "--against", target, code=0)


if __name__ == "__main__":
    unittest.main()
