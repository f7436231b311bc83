"""A world of a scenario's own: its own /tmp and /var/tmp, its own processes, its own network, all else read-only.

A failed installation deletes its temporary directory and every directory that it touched, so nothing of the
user's may be within reach. X servers listen under /tmp and under abstract network names: both are private here, so
scenarios run side by side, and every process ends with its scenario.
"""

import os
import pathlib
import subprocess
import sys

KEPT = "/media"
_INSIDE = "QUARN_GUI_SANDBOX"


def enter():
    """Runs this program anew inside; returns there."""
    if os.getpid() == 1 and os.environ.pop(_INSIDE, None):
        return
    command = ["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc"]
    if os.geteuid() != 0:
        command.append("--map-root-user")
    os.environ[_INSIDE] = "1"
    os.execvp(command[0], command + [sys.executable] + sys.argv)


def cover(files, keep=None):
    """Makes the machine read-only but for empty /tmp and /var/tmp; returns the paths of copies of `files`, by name.

    A directory is copied with everything in it. The directory `keep` stays writable, at KEPT.
    """
    contents = {name: _read(pathlib.Path(path)) for name, path in files.items()}
    if keep:
        _mount("--bind", os.path.abspath(keep), KEPT)
    # Not only the two directories: a rollback that cannot make its directory tries, and then removes, the parents.
    for line in open("/proc/self/mounts"):
        directory = line.split()[1].encode().decode("unicode_escape")
        if not directory.startswith(("/proc", "/sys", "/dev", KEPT)):
            subprocess.run(["mount", "-o", "remount,bind,ro", directory], stderr=subprocess.DEVNULL)
    mount("/tmp", "mode=1777")
    mount("/var/tmp", "mode=1777")
    for name, copies in contents.items():
        for path, data, mode in copies:
            copy = pathlib.Path("/tmp/bin", name, path)
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(data)
            copy.chmod(mode)
    return {name: f"/tmp/bin/{name}" for name in files}


def mount(directory, options):
    """Puts a new, empty file system at `directory`, for example with the option "size=100k" or "ro"."""
    os.makedirs(directory, exist_ok=True)
    _mount("-t", "tmpfs", "-o", options, "scenario", directory)


def _read(path):
    """(relative path, data, mode) of a file, or of all files of a directory."""
    files = [path] if path.is_file() else [file for file in path.rglob("*") if file.is_file()]
    return [(file.relative_to(path), file.read_bytes(), file.stat().st_mode) for file in files]


def _mount(*arguments):
    subprocess.run(["mount", *arguments], check=True)
