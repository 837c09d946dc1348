# SPDX-License-Identifier: MIT
"""Every scenario of the lab. A new one is a class in one of the modules here; its name makes it known to ./run.sh."""
import importlib
import pkgutil

from lab.scenarios.base import Scenario


def load_scenarios():
    """Every scenario by name, in the order of `Scenario.rank` and then of their names."""
    for module in pkgutil.iter_modules(__path__):
        importlib.import_module(f"{__name__}.{module.name}")
    named = (kind for kind in all_subclasses(Scenario) if kind.name)
    return {kind.name: kind() for kind in sorted(named, key=lambda kind: (kind.rank, kind.name))}


def all_subclasses(kind):
    for child in kind.__subclasses__():
        yield child
        yield from all_subclasses(child)
