"""What a tour has found, step by step."""

import json
import time


class Results:
    """Prints each step as it ends."""

    def __init__(self):
        self.steps = []

    def add(self, step, outcome, detail=""):
        """`outcome` is "works", "fails" or "cannot"."""
        self.steps.append({"step": step, "outcome": outcome, "detail": detail})
        print(f"{time.strftime('%T')} {outcome:6} {step}{': ' + detail if detail else ''}", flush=True)

    @property
    def failed(self):
        return [each["step"] for each in self.steps if each["outcome"] == "fails"]

    def save(self, path):
        path.write_text(json.dumps(self.steps, indent=1, ensure_ascii=False) + "\n")

    def summary(self):
        counts = {outcome: sum(each["outcome"] == outcome for each in self.steps)
                  for outcome in ("works", "fails", "cannot")}
        return "{works} passed, {fails} failed, {cannot} skipped".format(**counts)
