#!/usr/bin/env python3
"""script/in-fresh keeps the machine: what it refuses, what a command can reach, and that nothing of it stays.

In a sandbox in which everything but /tmp is read-only. In place of a Debian a handful of this machine's programs is
installed, by stand-ins for the programs that would fetch one.
"""
import os
import shutil
import signal
import subprocess
import sys
import unittest
from pathlib import Path

import sandbox

SCRIPT = Path(__file__).resolve().parents[2] / "script/in-fresh"
TREE, CACHE, TOOLS = Path("/tmp/tree"), Path("/tmp/cache"), Path("/tmp/tools")
PROGRAMS = ("bash", "cat", "chown", "env", "grep", "id", "install", "ln", "ls", "mkdir", "mount", "readlink", "rm", "rmdir",
            "setpriv", "sh", "sleep", "stat", "tar", "touch", "true", "umount")

DEBOOTSTRAP = """#!/bin/bash -e
root=$3
mkdir -p "$root"/{bin,proc,tmp,dev,etc/dpkg/dpkg.cfg.d,home,usr/bin}
cp -r /tmp/system/. "$root"
touch "$root/etc/$2-is-here"
echo 'root:x:0:0::/root:/bin/sh' >"$root/etc/passwd"
echo 'root:x:0:' >"$root/etc/group"
"""
USERADD = """#!/bin/bash -e
echo 'anna:x:1000:1000::/home/anna:/bin/bash' >>/etc/passwd
echo 'anna:x:1000:' >>/etc/group
install -d -o 1000 -g 1000 /home/anna
"""
# Of a package "name" comes the program "name".
APT_GET = """#!/bin/bash -e
[ "$1" = install ] || exit 0
shift 3
for package; do
  [ "$package" != nowhere ] || exit 100
  echo "installed $package" >"/usr/bin/$package"
done
"""


def write(path, text, mode=0o755):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(mode)


def make_system(root):
    """The programs and what they are linked with."""
    for program in PROGRAMS:
        path = shutil.which(program)
        linked = subprocess.run(["ldd", path], stdout=subprocess.PIPE, check=True).stdout.decode().split()
        for file in [path, *(word for word in linked if word.startswith("/"))]:
            place = root / (f"bin/{program}" if file == path else file[1:])
            place.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, place)
    write(root / "bin/useradd", USERADD)
    write(root / "bin/apt-get", APT_GET)


def state(directory):
    """Every name below, with owner, mode and time."""
    return {str(path): (found.st_uid, found.st_gid, found.st_mode, found.st_mtime_ns)
            for path in sorted(directory.rglob("*")) for found in [path.lstat()]}


class Fresh(unittest.TestCase):
    environment = {"PATH": f"{TOOLS}:{os.environ['PATH']}", "XDG_CACHE_HOME": str(CACHE), "HOME": "/tmp/home",
                   "SECRET": "of the caller"}

    def setUp(self):
        shutil.rmtree(TREE, ignore_errors=True)
        write(TREE / "script/in-fresh", SCRIPT.read_text())
        write(TREE / "theirs", "of somebody else", 0o600)
        os.chown(TREE / "theirs", 1234, 1234)
        git = ["git", "-C", TREE, "-c", "user.name=anna", "-c", "user.email=anna@localhost"]
        subprocess.run([*git, "init", "-q"], check=True)
        subprocess.run([*git, "add", "."], check=True)
        subprocess.run([*git, "commit", "-qm", "All"], check=True)
        write(TREE / "uncommitted", "new\n", 0o644)
        self.fresh("--", "true")
        self.made = os.listdir(CACHE / "quarn-fresh")
        shutil.rmtree(TREE / "build")

    def run_script(self, *arguments, stdin=b"", before=()):
        process = subprocess.run([*before, TREE / "script/in-fresh", *arguments], env=self.environment, input=stdin,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=100)
        return process.returncode, process.stdout.decode(), process.stderr.decode()

    def fresh(self, *arguments, **options):
        """The output of a run that must succeed."""
        status, out, err = self.run_script("trixie", *arguments, **options)
        self.assertEqual(status, 0, err)
        return out

    def test_what_cannot_be_right_is_refused_before_anything_is_made(self):
        for arguments, said in {
            (): "suite",
            ("--", "true"): "suite",
            ("../trixie", "--", "true"): "suite",
            ("/", "--", "true"): "suite",
            ("trixie",): "command is missing",
            ("trixie", "--"): "command is missing",
            ("trixie", "true"): 'no option "true"',
            ("trixie", "--home", "/home", "--", "true"): 'no option "--home"',
            ("trixie", "--packages", "bash -o=Dir::Etc=/tmp", "--", "true"): '"-o=Dir::Etc=/tmp"',
            ("trixie", "--packages", "../package.deb", "--", "true"): '"../package.deb"',
            ("trixie", "--packages", "*", "--", "true"): '"*"',
            ("trixie", "--packages", "bash-", "--", "true"): '"bash-"',
        }.items():
            with self.subTest(arguments):
                before = state(TREE)
                status, out, err = self.run_script(*arguments)
                self.assertEqual((status, out), (125, ""))
                self.assertIn(said, err)
                self.assertEqual(state(TREE), before)
                self.assertEqual(os.listdir(CACHE / "quarn-fresh"), self.made)

    def test_an_ordinary_user_is_refused(self):
        status, _, err = self.run_script("trixie", "--", "true",
                                         before=["setpriv", "--reuid=1234", "--regid=1234", "--clear-groups"])
        self.assertEqual(status, 125)
        self.assertIn("needs root", err)

    def test_a_name_that_would_be_read_as_a_list_of_directories_is_refused(self):
        tree = Path("/tmp/a:b")
        shutil.copytree(TREE, tree)
        process = subprocess.run([tree / "script/in-fresh", "trixie", "--", "true"], stderr=subprocess.PIPE)
        self.assertEqual(process.returncode, 125)
        self.assertIn(b"comma or colon", process.stderr)
        shutil.rmtree(tree)

    def test_the_command_is_an_ordinary_users(self):
        out = self.fresh("--", "sh", "-c", "id -u; id -g; pwd; echo $HOME; echo $SECRET; ls /etc; "
                                           "readlink /proc/self/ns/net")
        lines = out.splitlines()
        self.assertEqual(lines[:5], ["1000", "1000", "/home/anna/sources", "/home/anna", ""])
        self.assertIn("trixie-is-here", lines)
        self.assertNotEqual(lines[-1], os.readlink("/proc/self/ns/net"))
        self.assertEqual(self.fresh("--network", "--", "readlink", "/proc/self/ns/net"),
                         os.readlink("/proc/self/ns/net") + "\n")

    def test_its_status_and_its_streams_are_the_callers(self):
        status, out, err = self.run_script("trixie", "--", "sh", "-c", "cat; echo told >&2; exit 7", stdin=b"handed in")
        self.assertEqual((status, out), (7, "handed in"))
        self.assertTrue(err.endswith("told\n"), err)

    def test_it_can_write_to_the_build_directory_alone_and_nothing_stays(self):
        write(TREE / "build/release/kept", "of the caller", 0o644)
        (TREE / "build/fresh").mkdir()
        before = state(TREE), state(CACHE)
        out = self.fresh("--", "sh", "-c", """
            cat uncommitted; ls build; touch build/made && echo made
            touch made || echo refused; rm -f uncommitted || echo refused; chown anna theirs || echo refused
            cat theirs || echo refused; rm -rf /etc/passwd || echo refused; touch ~/made /tmp/made && echo made""")
        self.assertEqual(out.split(), ["new", "made", *["refused"] * 5, "made"])
        after = state(TREE), state(CACHE)
        del before[0][f"{TREE}/build/fresh"], after[0][f"{TREE}/build/fresh"]  # Its time.
        self.assertEqual(after, before)

    def test_what_a_former_call_has_left_is_not_touched(self):
        write(TREE / "build/fresh/new.former/root/letter", "dear", 0o600)
        os.chown(TREE / "build/fresh/new.former", 1234, 1234)
        before = state(TREE / "build/fresh")
        self.fresh("--", "touch", "build/made")
        self.assertEqual(state(TREE / "build/fresh"), before)

    def test_a_build_directory_elsewhere_is_refused(self):
        elsewhere = Path("/tmp/elsewhere")
        write(elsewhere / "letter", "dear", 0o600)
        (TREE / "build").symlink_to(elsewhere)
        before = state(elsewhere)
        status, _, err = self.run_script("trixie", "--", "touch", "build/made")
        self.assertEqual(status, 125)
        self.assertIn("symbolic link", err)
        self.assertEqual(state(elsewhere), before)

    def test_a_link_in_the_system_is_not_followed_out_of_it(self):
        letter = Path("/tmp/letter")
        write(letter, "dear", 0o600)
        (CACHE / "quarn-fresh/trixie/etc/resolv.conf").symlink_to(letter)
        self.fresh("--", "true")
        self.assertEqual(letter.read_text(), "dear")
        (CACHE / "quarn-fresh/trixie/etc/resolv.conf").unlink()

    def test_a_copy_is_of_what_was_committed_and_can_be_written_to(self):
        before = state(TREE)
        out = self.fresh("--copy", "--", "sh", "-c", "ls; cat theirs; touch made script/made && rm theirs && echo fine")
        self.assertEqual(out, "script\ntheirs\nof somebody elsefine\n")
        self.assertEqual({path: found for path, found in state(TREE).items() if not path.startswith(f"{TREE}/build")},
                         {path: found for path, found in before.items()})

    def test_packages_are_a_layer_of_their_own(self):
        before = state(CACHE / "quarn-fresh/trixie")
        out = self.fresh("--packages", "hare\n  tortoise", "--", "cat", "/usr/bin/hare", "/usr/bin/tortoise")
        self.assertEqual(out, "installed hare\ninstalled tortoise\n")
        made = os.listdir(CACHE / "quarn-fresh")
        self.assertEqual(len(made), len(self.made) + 1)
        # Neither order nor number makes another choice.
        self.fresh("--packages", "tortoise hare hare", "--", "cat", "/usr/bin/hare")
        self.assertEqual(os.listdir(CACHE / "quarn-fresh"), made)
        self.assertEqual(self.fresh("--", "sh", "-c", "ls /usr/bin | grep -c hare || true"), "0\n")
        self.assertEqual(state(CACHE / "quarn-fresh/trixie"), before)

    def test_what_cannot_be_made_leaves_nothing(self):
        status, out, err = self.run_script("trixie", "--packages", "nowhere", "--", "true")
        self.assertEqual((status, out), (125, ""))
        self.assertIn("could not be made", err)
        self.assertEqual(os.listdir(CACHE / "quarn-fresh"), self.made)

    def test_a_signal_ends_everything(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            command = [TREE / "script/in-fresh", "trixie", "--", "sh", "-c", "echo begun; sleep 1234"]
            process = subprocess.Popen(command, env=self.environment, stdout=subprocess.PIPE)
            self.assertEqual(process.stdout.readline(), b"begun\n")
            process.send_signal(number)
            self.assertEqual(process.wait(30), 125)
            process.stdout.close()
            self.assertEqual(os.listdir(TREE / "build/fresh"), [])
            for entry in Path("/proc").glob("[0-9]*/cmdline"):
                self.assertNotIn(b"sleep\x001234", entry.read_bytes())

    def test_only_the_compilers_cache_is_kept(self):
        self.fresh("--", "touch", "/home/anna/.cache/ccache/object", "/home/anna/.cache/other")
        self.assertEqual(self.fresh("--", "ls", "/home/anna/.cache", "/home/anna/.cache/ccache").split(),
                         ["/home/anna/.cache:", "ccache", "/home/anna/.cache/ccache:", "object"])


def main():
    if os.geteuid() or subprocess.run(["unshare", "--mount", "--net", "--pid", "--fork", "true"],
                                      stderr=subprocess.DEVNULL).returncode or not shutil.which("git"):
        print("no root, no namespaces or no git: skipped")
        return 77
    sandbox.enter()
    sandbox.cover({})
    make_system(Path("/tmp/system"))
    write(TOOLS / "debootstrap", DEBOOTSTRAP)
    # On a busy machine it would take minutes.
    write(TOOLS / "nice", '#!/bin/bash\nexec "$@"\n')
    unittest.main()


if __name__ == "__main__":
    sys.exit(main())
