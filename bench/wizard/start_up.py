#!/usr/bin/env python3
"""How long the wizard takes from its start to its first shown window, as a ratio to an empty Qt window program.

    start_up.py --setup bin/setup --empty bin/empty_window --tpk bin/tpk --kit examples/brook-ledger

Both run in turns, in one X server without a screen. A window is shown when the server maps it; when its content is first
drawn (DAMAGE extension) is told too, for what it is worth: the empty one has none. So that both start as they do for
users, there is a session bus, and the desktop is one of those on which Qt takes GTK's theme (its package
qt6-gtk-platformtheme); --bare leaves both out. Exit status 1 when the ratio is above --limit. Needs root or user
namespaces, Xvfb, openbox and dbus-daemon.
"""

import argparse
import os
import pathlib
import socket
import statistics
import struct
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tests/gui"))

import sandbox  # noqa: E402
from desktop import Desktop, run  # noqa: E402

WINDOW = (500, 360)


class Watcher:
    """A client of the X server that is told what is mapped and drawn."""

    def __init__(self, display):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(f"/tmp/.X11-unix/X{display.lstrip(':')}")
        self._socket.sendall(struct.pack("<BxHHHHxx", ord("l"), 11, 0, 0, 0))
        status, size = struct.unpack("<B5xH", self._read(8))
        setup = self._read(4 * size)
        assert status == 1, "the X server turns us away"
        first_id, = struct.unpack_from("<I", setup, 4)
        vendor_size, = struct.unpack_from("<H", setup, 16)
        formats = setup[21]
        self._root, = struct.unpack_from("<I", setup, 32 + (vendor_size + 3) // 4 * 4 + 8 * formats)
        # ChangeWindowAttributes: SubstructureNotify on the root window.
        self._socket.sendall(struct.pack("<BxHIII", 2, 4, self._root, 0x800, 0x80000))
        # QueryExtension
        self._socket.sendall(struct.pack("<BxHHxx8s", 98, 4, 6, b"DAMAGE"))
        reply = self._read(32)
        while reply[0] != 1:
            reply = self._read(32)
        assert reply[8], "the X server has no DAMAGE extension"
        damage_opcode, self._damage_event = reply[9], reply[10]
        # QueryVersion, then Create on the root window with every rectangle.
        self._socket.sendall(struct.pack("<BBHII", damage_opcode, 0, 3, 1, 1))
        self._socket.sendall(struct.pack("<BBHIIBxxx", damage_opcode, 1, 4, first_id, self._root, 0))

    def _read(self, size):
        data = b""
        while len(data) < size:
            part = self._socket.recv(size - len(data))
            assert part, "the X server is gone"
            data += part
        return data

    def drain(self):
        """Forgets what has happened up to now."""
        self._socket.settimeout(0.1)
        try:
            while True:
                self._read(32)
        except TimeoutError:
            pass
        self._socket.settimeout(30)

    def first_window(self):
        """When a window was mapped and when its whole content was first drawn."""
        mapped = None
        while True:
            event = self._read(32)
            code = event[0] & 0x7F
            if code == 1:  # a reply, possibly longer than an event
                self._read(4 * struct.unpack_from("<I", event, 4)[0])
            elif code == 19 and mapped is None:  # MapNotify
                mapped = time.perf_counter()
            elif code == self._damage_event and mapped is not None:
                if struct.unpack_from("<HH", event, 20) == WINDOW:
                    return mapped, time.perf_counter()


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    for name in ("setup", "empty", "tpk", "kit"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--rounds", type=int, default=40)
    parser.add_argument("--limit", type=float, default=1.15)
    parser.add_argument("--bare", action="store_true", help="a window manager alone, no desktop session")
    arguments = parser.parse_args()

    sandbox.enter()
    sandbox.mount("/var/tmp", "mode=1777")
    kit = "/var/tmp/quarn.tpk"
    run(arguments.tpk, "pack", "--quiet", arguments.kit, "-o", kit)
    files = sandbox.cover({"setup": arguments.setup, "empty": arguments.empty, "quarn.tpk": kit})
    os.makedirs("/tmp/home/runtime", mode=0o700)
    environment = {"PATH": "/usr/bin:/bin", "HOME": "/tmp/home", "TMPDIR": "/tmp", "LANG": "C.UTF-8",
                   "XDG_RUNTIME_DIR": "/tmp/home/runtime"}
    Desktop(environment, 0)
    if not arguments.bare:
        environment["XDG_CURRENT_DESKTOP"] = "XFCE"
        bus = run("dbus-daemon", "--session", "--fork", "--print-address", env=environment)
        environment["DBUS_SESSION_BUS_ADDRESS"] = bus.strip()
    watcher = Watcher(environment["DISPLAY"])

    def measure(*command):
        watcher.drain()
        start = time.perf_counter()
        process = subprocess.Popen(command, env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        times = watcher.first_window()
        process.kill()
        process.wait()
        return [moment - start for moment in times]

    commands = {"setup": [files["setup"], "-Len"], "empty": [files["empty"]]}
    for command in commands.values():
        measure(*command)  # warms the caches
    results = {name: [] for name in commands}
    for _ in range(arguments.rounds):
        for name, command in commands.items():
            results[name].append(measure(*command))
    ratios = {}
    for index, what in enumerate(("shown", "drawn")):
        median = {name: statistics.median(each[index] for each in times) for name, times in results.items()}
        ratios[what] = ratio = median["setup"] / median["empty"]
        print(f"{what}: setup {median['setup'] * 1000:.1f} ms, empty window {median['empty'] * 1000:.1f} ms, "
              f"ratio {ratio:.3f} (medians of {arguments.rounds})")
    return 0 if ratios["shown"] <= arguments.limit else 1


if __name__ == "__main__":
    sys.exit(main())
