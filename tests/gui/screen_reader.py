"""What a screen reader is told: the tree of objects on the accessibility bus, asked for as a reader asks for it."""

import re
import shutil

from desktop import run

_ACCESSIBLE = "org.a11y.atspi.Accessible"
_ROOT = "/org/a11y/atspi/accessible/root"


class ScreenReader:
    """The session bus and the accessibility bus of a world, which programs started later are on."""

    # What it runs, by Debian package.
    TOOLS = {"dbus-daemon": "dbus-daemon", "gdbus": "libglib2.0-bin"}

    def __init__(self, environment):
        self._environment = environment
        address = run("dbus-daemon", "--session", "--fork", "--print-address", env=environment).strip()
        environment["DBUS_SESSION_BUS_ADDRESS"] = address
        # As if the user had switched it on.
        environment["QT_LINUX_ACCESSIBILITY_ALWAYS_ON"] = "1"
        answer = self._call("--session", "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus.GetAddress")
        self._bus = re.search(r"'(.*?)'", answer).group(1)

    @classmethod
    def missing_tool(cls):
        return next((package for tool, package in cls.TOOLS.items() if not shutil.which(tool)), None)

    def objects(self):
        """(role, name, states) of everything in the windows of all programs, the windows included."""
        return [found for program in self._children("org.a11y.atspi.Registry", _ROOT)
                for window in self._children(*program) for found in self._walk(*window)]

    def _walk(self, owner, path):
        yield self._role(owner, path), self._name(owner, path), self._is_showing(owner, path)
        for child in self._children(owner, path):
            yield from self._walk(*child)

    def _role(self, owner, path):
        answer = self._ask(owner, path, f"{_ACCESSIBLE}.GetRoleName")
        return re.search(r"'(.*)'", answer).group(1)

    def _name(self, owner, path):
        answer = self._ask(owner, path, "org.freedesktop.DBus.Properties.Get", _ACCESSIBLE, "Name")
        return re.search(r"""<(['"])(.*)\1>""", answer).group(2)

    def _is_showing(self, owner, path):
        showing = 25
        answer = self._ask(owner, path, f"{_ACCESSIBLE}.GetState")
        return bool(int(re.search(r"\d+", answer.replace("uint32", "")).group()) >> showing & 1)

    def _children(self, owner, path):
        answer = self._ask(owner, path, f"{_ACCESSIBLE}.GetChildren")
        return re.findall(r"\('([^']*)', (?:objectpath )?'([^']*)'\)", answer)

    def _ask(self, owner, path, method, *arguments):
        return self._call(f"--address={self._bus}", owner, path, method, *arguments)

    def _call(self, bus, owner, path, method, *arguments):
        return run("gdbus", "call", bus, "--dest", owner, "--object-path", path, "--method", method, *arguments,
                   env=self._environment)
