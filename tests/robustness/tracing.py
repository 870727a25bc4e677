"""Runs under strace."""
import functools
import re
import tempfile

from support import expect_none, run

FIRST_OF_MAIN = re.compile(r"fcntl\(0\b.*F_GETFD")


def trace(case, *words):
    """Runs a case. Returns the report, and the lines of strace."""
    with tempfile.NamedTemporaryFile("r") as log:
        return run(case, wrapper=("strace", "-qq", "-y", "-o", log.name, *words)), list(log)


@functools.lru_cache(None)
def calls_of_main(case):
    """Returns the system calls of a run from `main` on, as (name, how often it was called, line)."""
    report, lines = trace(case)
    expect_none([report])
    counts, calls, is_main = {}, [], False
    for line in lines:
        call = line.split("(")[0]
        counts[call] = counts.get(call, 0) + 1
        is_main = is_main or FIRST_OF_MAIN.match(line)
        if is_main and call.isidentifier():
            calls.append((call, counts[call], line))
    return calls
