"""What a scenario plays with: a user's home, a kit beside the wizard, and the running wizard."""

import os
import pathlib
import shutil
import subprocess

import sandbox
from desktop import Desktop, run, wait_for
from screen_reader import ScreenReader

# Frames in the wizard's window are the same on every desktop; these are points inside of them.
BACK, NEXT, CANCEL = (270, 335), (350, 335), (450, 335)
FIELD, BROWSE, CHECK_BOX = (300, 290), (475, 290), (180, 180)

# Long ago, in whole seconds.
KIT_TIME = 1_600_000_000


# What the desktops' libraries take and keep until the end of the process; none of it is asked for by the wizard itself.
_LEAKS = """leak:libdbus-1.so
leak:libfontconfig.so
leak:libobjc.so
leak:libgnustep-base.so
leak:libgnustep-gui.so
"""


class Missing(Exception):
    """This machine lacks what the scenario needs."""


class World:
    """The files and the environment. Nothing in it outlives the scenario."""

    def __init__(self, bridge, programs, texts):
        self.bridge = bridge
        self._programs = programs
        self._texts = texts
        self._desktop = None
        self.root = pathlib.Path("/tmp/world")
        self.home = self.root / "home"
        self.temp = self.root / "temp"
        self.application = self.root / "application"
        self.fakes = self.root / "fakes"
        for directory in (self.home, self.temp, self.application, self.fakes, self.root / "runtime"):
            directory.mkdir(parents=True)
        (self.root / "runtime").chmod(0o700)
        self.setup = self.application / pathlib.Path(programs["setup"]).name
        shutil.copy2(programs["setup"], self.setup)
        self.log = self.root / "wizard.log"
        self.kit = self.application / "quarn.tpk"
        self.environment = {
            "PATH": f"{self.fakes}:/usr/local/bin:/usr/bin:/bin",
            "HOME": str(self.home),
            "TMPDIR": str(self.temp),
            "LANG": "C.UTF-8",
            "XDG_RUNTIME_DIR": str(self.root / "runtime"),
        }
        leaks = self.root / "leaks"
        leaks.write_text(_LEAKS)
        self.environment["LSAN_OPTIONS"] = f"suppressions={leaks}:print_suppressions=0"
        # What finds libraries and reports for a build under test.
        for name in ("LD_LIBRARY_PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
            if name in os.environ:
                self.environment[name] = os.environ[name]

    # --- Paths that the wizard knows ---

    @property
    def default_target(self):
        return self.home / ".quarn/Orbex/quarn/tmplts"

    @property
    def launcher_file(self):
        return self.home / ".Orbex/qlaunch/qlaunch.cfg"

    @property
    def recorded(self):
        """The template directories that the launcher's file lists."""
        if not self.launcher_file.exists():
            return []
        lines = self.launcher_file.read_text().splitlines()
        key = "ConfigurationTemplatesLocation="
        return [line.removeprefix(key) for line in lines if line.startswith(key)]

    @property
    def languages(self):
        """The codes that a user can choose."""
        return list(self._texts)

    def text(self, text_id, language="en"):
        """A text as the file that the language shows has it."""
        return self._texts[language][text_id]

    # --- Making things ---

    def pack(self, files, name="Field Studies", provider="Quarn & Sons", description=""):
        """Makes the kit out of `files`, a dictionary of relative paths and contents."""
        source = self.root / "source"
        shutil.rmtree(source, ignore_errors=True)
        for path, contents in files.items():
            file = source / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(contents)
            os.utime(file, (KIT_TIME, KIT_TIME))
        options = ["--name", name, "--provider", provider]
        if description:
            options += ["--description", description]
        run(self._programs["tpk"], "pack", "--quiet", "--force", *options, "-o", str(self.kit), str(source),
            env=self.environment)

    def pack_example(self):
        self.pack({"crm/base.cf": b"base", "crm/en/readme.txt": b"Read me", "tax/2024.mft": b"x" * 5000},
                  description="crm/en/readme.txt")
        return {"crm/base.cf", "crm/en/readme.txt", "tax/2024.mft"}

    def pack_slow(self):
        """A kit that takes a few seconds to install: every file costs several shell commands."""
        self.pack({f"group{i % 7}/file{i:04}.cf": b"%d" % i for i in range(250)})
        return 250

    def use_bundle(self):
        """Replaces the executable by the bundle of the build."""
        self.setup.unlink()
        bundle = self.application / "Setup.app"
        shutil.copytree(self._programs["bundle"], bundle)
        self.setup = bundle / "Contents/MacOS/setup"

    def shrink_temp(self, size):
        sandbox.mount(str(self.temp), f"size={size}")

    def read_only_directory(self):
        directory = "/tmp/read-only"
        sandbox.mount(directory, "ro")
        return directory

    def fake(self, name):
        """Puts a program `name` before all others that writes down its arguments; returns where."""
        record = self.root / f"{name}.arguments"
        program = self.fakes / name
        program.write_text(f'#!/bin/sh\nprintf "%s\\n" "$@" >>"{record}"\n')
        program.chmod(0o755)
        return record

    @property
    def has_desktop(self):
        return self._desktop is not None

    @property
    def desktop(self):
        """Started when it is first asked for."""
        if self._desktop is None:
            self._desktop = Desktop(self.environment)
        return self._desktop

    def start_screen_reader(self):
        """Before the wizard."""
        if package := ScreenReader.missing_tool():
            raise Missing(package)
        self.desktop  # the reader's programs need the display too
        return ScreenReader(self.environment)

    def start_wayland(self, size=None):
        """A Wayland desktop beside the X server's, or of this size in a window of the X server's, which it returns."""
        for tool, package in (("weston", "weston"), ("qtpaths6", "qt6-base-dev-tools")):
            if not shutil.which(tool):
                raise Missing(package)
        plugins = pathlib.Path(run("qtpaths6", "--query", "QT_INSTALL_PLUGINS").strip())
        if not list((plugins / "platforms").glob("libqwayland*")):
            raise Missing("qt6-wayland")
        self.environment["WAYLAND_DISPLAY"] = "wayland-scenario"
        backend = ["--backend=headless-backend.so"]
        if size:
            self.desktop.point_away()  # a pointer on the window from its beginning may be overlooked
            backend = ["--backend=x11-backend.so", "--use-pixman", f"--width={size[0]}", f"--height={size[1]}"]
        with open("/tmp/weston.log", "wb") as log:
            subprocess.Popen(["weston", *backend, "--socket=wayland-scenario", "--idle-time=0"],
                             env=self.environment, stdout=log, stderr=log)
        wait_for((self.root / "runtime/wayland-scenario").exists, "the Wayland desktop")
        return wait_for(self.desktop.windows, "the Wayland desktop's window")[0] if size else None

    def start(self, *arguments, language="en", **environment):
        """Runs the wizard; a value of None takes a variable out of its environment."""
        if language:
            arguments = (*arguments, f"-L{language}")
        if "DISPLAY" not in environment:
            self.desktop  # gives the environment its display
        variables = {**self.environment, **environment}
        variables = {name: value for name, value in variables.items() if value is not None}
        return Wizard(self, [str(self.setup), *arguments], variables)

    # --- Looking at things ---

    def installed(self, target=None):
        """The relative paths of the files below the target directory."""
        target = pathlib.Path(target or self.default_target)
        return {str(path.relative_to(target)) for path in target.rglob("*") if path.is_file()}

    def files(self):
        """All files below the scenario's directory; an installation that gets on changes them."""
        return {os.path.join(directory, name) for directory, _, names in os.walk(self.root) for name in names}

    def check(self, condition, what):
        if not condition:
            raise AssertionError(what)

    def check_equal(self, actual, expected, what):
        if actual != expected:
            raise AssertionError(f"{what}: {actual!r}, expected {expected!r}")


class Wizard:
    """A running wizard."""

    def __init__(self, world, command, environment):
        self.world = world
        with open(world.log, "wb") as log:
            self._process = subprocess.Popen(
                command, env=environment, cwd=world.root, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self._known = []

    # --- Windows ---

    def next_window(self, what):
        """The next window that opens; it has the keyboard."""
        def opened():
            if self._process.poll() is not None:
                raise AssertionError(f"no {what}, but exit status {self._process.returncode}: {self.output}")
            return [window for window in self.world.desktop.windows() if window not in self._known]
        new = wait_for(opened, what)
        self.world.check_equal(len(new), 1, f"windows opened for {what}")
        self._known += new
        wait_for(new[0].is_active, f"{what} to have the keyboard")
        return new[0]

    def main_window(self):
        """The wizard's window, once it has opened."""
        self.window = self.next_window("the wizard's window")
        return self.window

    def message(self):
        return self.next_window("a message")

    def wait_closed(self, window, what):
        wait_for(lambda: not window.exists(), f"{what} to close")

    # --- What the user does in the wizard's window ---

    def press(self, position):
        # The window of a message or chooser is gone before the keyboard is back here.
        wait_for(self.window.is_active, "the wizard to have the keyboard")
        self.window.click(*position)

    def fill_field(self, text):
        self.window.click(*FIELD)
        self.window.key("End", "shift+Home", "BackSpace")
        if text:
            self.window.type(text)

    def install_from_directory_page(self):
        """Presses Next and waits until the directory is on record, the last step of an installation."""
        self.press(NEXT)
        self.wait_recorded()

    def wait_recorded(self):
        wait_for(lambda: self.world.recorded, "the installation to be recorded", progress=self.world.files)

    # --- The end ---

    @property
    def is_running(self):
        return self._process.poll() is None

    @property
    def output(self):
        return self.world.log.read_text()

    def finish(self):
        """Waits for the end of the program, which always counts as a success of it."""
        wait_for(lambda: not self.is_running, "the program to end", progress=self.world.files)
        self.world.check_equal(self._process.returncode, 0, f"exit status, with {self.output!r}")
        if self.world.has_desktop:
            wait_for(lambda: not self.world.desktop.windows(), "no window to be left")
