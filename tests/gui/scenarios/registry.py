"""The list of all scenarios, which the files of this directory fill."""

SCENARIOS = {}
# What a scenario needs of the desktop that the wizard runs on; see bridges.py.
NEEDS = {}


def scenario(function):
    SCENARIOS[function.__name__] = function
    return function


def needs(what):
    def note(function):
        NEEDS[function.__name__] = what
        return function
    return note
