"""The parts of a tour that all desktops share. Uses the support of the end-to-end tests."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "EndToEnd"))
