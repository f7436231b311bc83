#!/usr/bin/env python3
"""A failed installation from a bundle reaches nothing of the user's outside of its template directory.

Run with the wizard itself as well, which removes its temporary directory and goes on in /var/tmp: were the launcher
to protect nothing, or the installation not to fail, that would show. Everything happens in a sandbox of its own.
"""
import os
import subprocess
import sys
import unittest

import sandbox

FOLDER = "/tmp/bundle"
KEPT = ["/tmp/anna/letter", "/var/tmp/letter", "/tmp/letter"]


class Rollback(unittest.TestCase):
    def setUp(self):
        for path in KEPT:
            os.makedirs(os.path.dirname(path), exist_ok=True)
            open(path, "w").close()
        # Every pass fails, however often the worker repeats it.
        self.home = "/tmp/home-" + self._testMethodName
        sandbox.mount(self.home + "/.quarn/Orbex/quarn/tmplts", "ro")
        self.environment = {"PATH": os.environ["PATH"], "HOME": self.home, "TMPDIR": "/tmp/anna", "LC_ALL": "C.UTF-8"}

    def install(self, program):
        process = subprocess.run([f"{FOLDER}/{program}", "-S"], env=self.environment, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, timeout=120)
        self.assertEqual((process.returncode, process.stdout), (0, b"Installation error\n"))
        return [path for path in KEPT if os.path.exists(path)]

    def test_by_the_launcher_everything_stays(self):
        self.assertEqual(self.install("start-setup"), KEPT)
        self.assertEqual(os.listdir("/tmp/anna"), ["letter"])
        self.assertEqual(os.listdir("/var/tmp"), ["letter"])

    def test_without_it_the_temporary_directory_goes(self):
        self.assertNotIn("/tmp/anna/letter", self.install("setup"))


def main():
    if subprocess.run(["unshare", "--mount", "--map-root-user" if os.geteuid() else "--fork", "true"],
                      stderr=subprocess.DEVNULL).returncode:
        print("no mounts of its own: skipped")
        return 77
    sandbox.enter()
    tpk, setup = os.environ["TPK"], os.environ["SETUP"]
    example = os.path.join(os.path.dirname(__file__), "../../examples/brook-ledger/kit.toml")
    example = os.path.realpath(example)
    sandbox.mount("/media", "mode=755")
    subprocess.run([tpk, "bundle", "--quiet", "--manifest", example, "--target", "linux", "--system-qt",
                    "--wizard", setup, "-o", "/media/bundle"], check=True)
    with open("/media/bundle.tar.xz", "rb") as file:
        archive = file.read()
    sandbox.cover({})
    subprocess.run(["tar", "xJC", "/tmp"], input=archive, check=True)
    unittest.main()


if __name__ == "__main__":
    sys.exit(main())
