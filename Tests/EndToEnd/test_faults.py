"""A short version of `Tests/EndToEnd/faults`."""

import contextlib

import pytest

from support.fault_run import FaultRun


@pytest.mark.joins
def test_invariants_hold_under_random_faults():
    with contextlib.closing(FaultRun(seed=1, slowness=4)) as run:
        try:
            run.run(minutes=0.5)
        except Exception:
            print("Events:", *run.events, "Log:", *run.tray.lines[-40:], sep="\n")
            raise
        assert run.seen["changes acknowledged"] > 0
