#!/usr/bin/env python3
"""Draws every page and message of the wizard in every language into a directory.

    screenshots.py --book bin/picture_book --tpk bin/tpk --kit examples/brook-ledger DIRECTORY [LANGUAGE ...]

The user is called Anna; her home, like all temporary files, is gone afterwards. Needs root or user namespaces.
"""

import argparse
import os
import subprocess
import sys

import sandbox


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--book", required=True, help="the program that draws")
    parser.add_argument("--tpk", required=True, help="the kit tool")
    parser.add_argument("--kit", required=True, help="what the kit is made of")
    parser.add_argument("--scale", default="1", help="pixels per point, for example 1.5")
    parser.add_argument("directory")
    parser.add_argument("languages", nargs="*")
    arguments = parser.parse_args()

    os.makedirs(arguments.directory, exist_ok=True)
    sandbox.enter()
    # Packed before the directories of the kit are covered, into one that goes away by itself.
    sandbox.mount("/var/tmp", "mode=1777")
    kit = "/var/tmp/quarn.tpk"
    subprocess.run([arguments.tpk, "pack", "--quiet", arguments.kit, "-o", kit], check=True)
    files = sandbox.cover({"book": arguments.book, "quarn.tpk": kit}, arguments.directory)
    sandbox.mount("/home", "mode=755")
    os.mkdir("/home/anna")
    os.mkdir("/tmp/anna")
    environment = {**os.environ, "HOME": "/home/anna", "TMPDIR": "/tmp/anna", "LC_ALL": "C.UTF-8",
                   "QT_SCALE_FACTOR": arguments.scale}
    return subprocess.run(
        [files["book"], sandbox.KEPT, *arguments.languages],
        cwd=os.path.dirname(files["quarn.tpk"]), env=environment).returncode


if __name__ == "__main__":
    sys.exit(main())
