"""Reads the memory of processes."""

import contextlib
import pathlib


def is_sanitized(pid):
    """Returns whether the process has a sanitizer, which keeps a copy of the initial environment."""
    return "san.so" in pathlib.Path(f"/proc/{pid}/maps").read_text()


def kilobytes(pid, *fields):
    """Returns the sum of fields of a process's memory, such as "Pss" or "Private_Dirty"."""
    lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]
    return sum(int(line.split()[1]) for line in lines if line.split(":")[0] in fields)


def private_memory(pid):
    """Yields the writable private memory of a process, except huge reserved areas."""
    with open(f"/proc/{pid}/mem", "rb", 0) as memory:
        for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines():
            span, rights = line.split()[:2]
            start, end = (int(part, 16) for part in span.split("-"))
            if rights == "rw-p" and end - start < 32_000_000:
                with contextlib.suppress(OSError):
                    memory.seek(start)
                    yield memory.read(end - start)


def copies_in_memory(pid, text):
    """Counts occurrences of a text in the memory of a process."""
    return sum(piece.count(text.encode()) for piece in private_memory(pid))
