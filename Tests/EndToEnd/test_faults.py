"""A short run of what `Tests/EndToEnd/faults` does for minutes or hours."""

import contextlib

from support.fault_run import FaultRun


def test_a_tray_keeps_its_promises_under_random_faults():
    with contextlib.closing(FaultRun(seed=1, slowness=4)) as run:
        try:
            run.run(minutes=0.5)
        except Exception:
            print("Events:", *run.events, "Log:", *run.tray.lines[-40:], sep="\n")
            raise
        assert run.seen["changes acknowledged"] > 0
