"""The results of the steps of a tour."""

import json
import time


class Results:
    """Collects the results of the steps and prints each."""

    def __init__(self):
        self.steps = []

    def add(self, step, outcome, detail=""):
        """Adds and prints a result. Requires that `outcome` is "passed", "failed" or "skipped"."""
        self.steps.append({"step": step, "outcome": outcome, "detail": detail})
        print(f"{time.strftime('%T')} {outcome:7} {step}{': ' + detail if detail else ''}", flush=True)

    @property
    def failed(self):
        """Returns the names of the failed steps."""
        return [each["step"] for each in self.steps if each["outcome"] == "failed"]

    def save(self, path):
        """Writes the results as JSON."""
        path.write_text(json.dumps(self.steps, indent=1, ensure_ascii=False) + "\n")

    def summary(self):
        counts = {outcome: sum(each["outcome"] == outcome for each in self.steps)
                  for outcome in ("passed", "failed", "skipped")}
        return "{passed} passed, {failed} failed, {skipped} skipped".format(**counts)
