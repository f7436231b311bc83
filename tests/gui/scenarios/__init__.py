"""What users do with the wizard. Written once for every desktop it runs on; see bridges.py."""

import importlib
import pkgutil

from scenarios.registry import NEEDS, SCENARIOS

for module in pkgutil.iter_modules(__path__):
    importlib.import_module(f"{__name__}.{module.name}")

__all__ = ["NEEDS", "SCENARIOS"]
