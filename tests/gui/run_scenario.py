#!/usr/bin/env python3
"""Runs one scenario against one executable of the wizard.

    run_scenario.py --list [--bridge qt]
    run_scenario.py --bridge qt --setup bin/setup --tpk bin/tpk --tree . SCENARIO

Needs root or user namespaces: a scenario gets a /tmp, a /var/tmp and processes of its own. Exit status 0 when it holds,
1 when not, 77 when this machine lacks something that only some scenarios need.
"""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys
import traceback

import sandbox
from bridges import BRIDGES
from scenarios import NEEDS, SCENARIOS
from world import Missing, World


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--list", action="store_true", help="print the scenarios' names")
    parser.add_argument("--bridge", choices=BRIDGES)
    parser.add_argument("--setup", help="the wizard's executable")
    parser.add_argument("--tpk", help="the kit tool")
    parser.add_argument("--tree", type=pathlib.Path, help="the source tree, for its texts")
    parser.add_argument("--keep", metavar="DIR", help="copy pictures and logs of a failure to this directory")
    parser.add_argument("scenario", nargs="?", choices=SCENARIOS)
    arguments = parser.parse_args()
    if arguments.list:
        offers = BRIDGES[arguments.bridge].offers if arguments.bridge else set(NEEDS.values())
        print("\n".join(name for name in SCENARIOS if name not in NEEDS or NEEDS[name] in offers))
        return 0

    sandbox.enter()
    texts = read_texts(arguments.tree)
    files = {"setup": arguments.setup, "tpk": arguments.tpk}
    bundle = pathlib.Path(arguments.setup).parent / "Setup.app"
    if bundle.exists():
        files["bundle"] = bundle
    programs = sandbox.cover(files, arguments.keep)
    world = World(BRIDGES[arguments.bridge](), programs, texts)
    try:
        SCENARIOS[arguments.scenario](world)
    except Missing as missing:
        print(f"skipped: {missing}")
        return 77
    except Exception:
        traceback.print_exc()
        if arguments.keep:
            keep_traces(world, f"{sandbox.KEPT}/{arguments.bridge}-{arguments.scenario}")
        return 1
    return 0


def read_texts(directory):
    """What each language shows, in the order of the program's list: texts by language and id."""

    def read(file):
        lines = (directory / file).read_text()
        included = re.search(r'#include "(.*)"', lines)
        return read(included[1]) if included else dict(re.findall(r'QUARN_TEXT\((\w+), "(.*)"\)', lines))

    lines = (directory / "l10n/languages.inc").read_text()
    languages = re.findall(r"^QUARN_LANGUAGE\(\d+, (\w+), (\w+)\)", lines, re.M)
    return {code: read(f"l10n/texts/{table}.inc") for code, table in languages}


def keep_traces(world, name):
    """What helps to see why a scenario failed."""
    if world.has_desktop:
        world.desktop.picture(f"{name}.png")
    with open(f"{name}-processes.log", "w") as log:
        subprocess.run(["ps", "-eo", "pid,ppid,stat,etimes,time,wchan:24,args"], stdout=log)
        if world.has_desktop:
            subprocess.run(["xwininfo", "-root", "-tree"], stdout=log)
            subprocess.run(["xprop", "-root"], stdout=log)
    for log in (world.log, pathlib.Path("/tmp/desktop.log")):
        if log.exists():
            shutil.copy(log, f"{name}-{log.name}")


if __name__ == "__main__":
    sys.exit(main())
