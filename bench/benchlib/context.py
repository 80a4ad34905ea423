"""What every measurement is given."""

import dataclasses
import statistics

from .origin import Origin
from .programs import Programs
from .report import Report


@dataclasses.dataclass
class Context:
    origin: Origin
    programs: Programs
    report: Report
    short: bool

    def pick(self, full, short):
        return short if self.short else full

    @property
    def repetitions(self):
        return self.pick(5, 2)


def interleaved(repetitions, contestants):
    """Runs the contestants {name: function} in turn, so that a disturbance meets all of them: {name: [results]}.

    A contestant that is None is missing on this machine and gets an empty list.
    """
    results = {name: [] for name in contestants}
    for _ in range(repetitions):
        for name, run in contestants.items():
            if run is not None:
                results[name].append(run())
    return results


def median(values):
    """None for no values."""
    return statistics.median(values) if values else None
