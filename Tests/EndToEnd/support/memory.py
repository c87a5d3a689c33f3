"""Looks into the memory of processes."""

import contextlib
import pathlib


def is_sanitized(pid):
    """Whether a sanitizer watches the process: it keeps a copy of the first environment."""
    return "san.so" in pathlib.Path(f"/proc/{pid}/maps").read_text()


def kilobytes(pid, *fields):
    """The sum of the named fields of a process's memory, such as "Pss" or "Private_Dirty"."""
    lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]
    return sum(int(line.split()[1]) for line in lines if line.split(":")[0] in fields)


def private_memory(pid):
    """The writable private memory of a process, as far as it is of a size that is really used."""
    with open(f"/proc/{pid}/mem", "rb", 0) as memory:
        for line in pathlib.Path(f"/proc/{pid}/maps").read_text().splitlines():
            span, rights = line.split()[:2]
            start, end = (int(part, 16) for part in span.split("-"))
            if rights == "rw-p" and end - start < 32_000_000:
                with contextlib.suppress(OSError):
                    memory.seek(start)
                    yield memory.read(end - start)


def copies_in_memory(pid, text):
    """How often a text stands in the memory of a process."""
    return sum(piece.count(text.encode()) for piece in private_memory(pid))
