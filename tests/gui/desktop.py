"""A desktop without a screen: an X server, a window manager, and a user who clicks and types."""

import os
import re
import subprocess
import time

SCREEN = (1280, 960)

_PATIENCE = 30.0  # seconds; a loaded machine is slow, a hanging wizard never comes back


class Timeout(AssertionError):
    """What was waited for did not come."""


def wait_for(condition, what, patience=_PATIENCE, progress=None):
    """Waits until `condition()` is true and returns what it gives.

    Gives up after `patience` seconds, but waits as long again whenever `progress()` has changed by then.
    """
    seen = progress() if progress else None
    end = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            reached = progress() if progress else None
            if reached == seen:
                raise Timeout(f"waited {patience:g} s for {what}")
            seen = reached
            end = time.monotonic() + patience
        time.sleep(0.02)


def run(*command, **options):
    """The output of a command that must succeed."""
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(command)}: {done.stderr or done.stdout}")
    return done.stdout


class Window:
    """A window that the window manager knows. Positions are those in its content, from the top left."""

    def __init__(self, number, desktop):
        self.number = number
        self._desktop = desktop

    def __eq__(self, other):
        return isinstance(other, Window) and self.number == other.number

    def __hash__(self):
        return hash(self.number)

    @property
    def title(self):
        return run("xdotool", "getwindowname", self.number).rstrip("\n")

    @property
    def size(self):
        lines = run("xdotool", "getwindowgeometry", "--shell", self.number).split()
        values = dict(line.split("=") for line in lines)
        return int(values["WIDTH"]), int(values["HEIGHT"])

    def property(self, name):
        return run("xprop", "-id", self.number, name).partition(name)[2].strip()

    def icon(self):
        """The pixels of its first icon, each as (blue, green, red, alpha)."""
        numbers = run("xprop", "-id", self.number, "-len", "1000000", "-notype", "32c", "_NET_WM_ICON").partition("=")[2]
        numbers = [int(number) for number in numbers.replace(",", " ").split()]
        return [number.to_bytes(4, "little") for number in numbers[2 : 2 + numbers[0] * numbers[1]]] if numbers else []

    def exists(self):
        return self in self._desktop.windows()

    def activate(self):
        run("xdotool", "windowactivate", self.number)
        wait_for(self.is_active, "the window to become active")

    def is_active(self):
        active = subprocess.run(["xdotool", "getactivewindow"], capture_output=True, text=True)
        return active.stdout.strip() == self.number

    def move(self, x, y):
        """Its content to this position on the screen, with its frame around it."""
        left, _, top, _ = (int(size) for size in self.property("_NET_FRAME_EXTENTS").split("=")[1].split(","))
        run("xdotool", "windowmove", "--sync", self.number, str(x - left), str(y - top))

    def point_at(self, x, y):
        run("xdotool", "mousemove", "--sync", "--window", self.number, str(x), str(y))

    def click(self, x, y):
        run("xdotool", "mousemove", "--window", self.number, str(x), str(y), "mousedown", "1",
            "sleep", "0.03", "mouseup", "1")

    def key(self, *names):
        """Presses keys as the user does: they go to the active window, which this one must be."""
        wait_for(self.is_active, "the window to have the keyboard")
        run("xdotool", "key", "--delay", "30", *names)

    def type(self, text):
        self._desktop.give_keys(text)
        wait_for(self.is_active, "the window to have the keyboard")
        run("xdotool", "type", "--delay", "20", "--", text)

    def ask_to_close(self):
        """Does what the close button of the title bar does."""
        self.activate()
        run("xdotool", "key", "--delay", "50", "alt+F4")


# Nothing but what the scenarios use. As it comes, the manager would take every click to itself first.
_MANAGER_CONFIGURATION = """<?xml version="1.0" encoding="UTF-8"?>
<openbox_config xmlns="http://openbox.org/3.4/rc">
  <focus><focusNew>yes</focusNew></focus>
  <keyboard><keybind key="A-F4"><action name="Close"/></keybind></keyboard>
  <mouse/>
</openbox_config>
"""


class Desktop:
    """The X server, its window manager and its windows."""

    def __init__(self, environment):
        self.environment = environment
        self._letters = []  # that have been given keys
        os.makedirs("/tmp/.X11-unix", mode=0o1777, exist_ok=True)
        reading, writing = os.pipe()
        self._log = open("/tmp/desktop.log", "wb")
        self._server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writing), "-screen", "0", f"{SCREEN[0]}x{SCREEN[1]}x24", "-dpi", "96", "-nolisten", "tcp",
             "-noreset"],
            pass_fds=[writing], stdout=self._log, stderr=self._log)
        os.close(writing)
        display = ":" + os.read(reading, 16).decode().strip()
        os.environ["DISPLAY"] = environment["DISPLAY"] = display
        # It tells when it is through with its start: a window that opens before that may be overlooked.
        ready = "/tmp/window-manager-is-ready"
        configuration = "/tmp/window-manager.xml"
        with open(configuration, "w") as out:
            out.write(_MANAGER_CONFIGURATION)
        self._manager = subprocess.Popen(
            ["openbox", "--config-file", configuration, "--startup", f"touch {ready}"], env=environment, stdout=self._log, stderr=self._log)
        wait_for(lambda: os.path.exists(ready), "the window manager")

    def windows(self):
        """In the order of their appearance."""
        clients = run("xprop", "-root", "_NET_CLIENT_LIST").partition("#")[2]
        return [Window(str(int(number, 16)), self) for number in clients.replace(",", " ").split()]

    def give_keys(self, text):
        """Puts the letters of `text` that the keyboard lacks on keys of their own.

        They stay there. What types would put each of them on a key for a moment only, and a program that asks for the
        meaning of that key a little later is told the next letter's.
        """
        letters = [letter for letter in dict.fromkeys(text) if not letter.isascii() and letter not in self._letters]
        if not letters:
            return
        self._letters += letters
        keyboard = run("xkbcomp", "-xkb", self.environment["DISPLAY"], "-")
        names, symbols = keyboard.split("xkb_symbols", 1)
        free = [key for key in re.findall(r"(<\w+>) = \d+;", names) if key not in symbols]
        keys = [f"key {key} {{ [ U{ord(letter):04X} ] }};\n" for key, letter in zip(free, letters)]
        symbols = symbols.replace("{", "{\n" + "".join(keys), 1)
        run("xkbcomp", "-w0", "-", self.environment["DISPLAY"], input=f"{names}xkb_symbols{symbols}")

    def point_away(self):
        """Moves the pointer off the windows, which open in the middle of the screen."""
        run("xdotool", "mousemove", "0", "0")

    def picture(self, path):
        run("import", "-window", "root", path)
