"""Runs under strace."""
import functools
import re
import tempfile

from support import expect_none, run

FIRST_OF_MAIN = re.compile(r"fcntl\(0\b.*F_GETFD")


def trace(case, *words, act=lambda place, child, log: None):
    """Runs a case. Returns the report, and the lines of strace. `act` is given the file of these."""
    with tempfile.NamedTemporaryFile("r") as log:
        return run(case, wrapper=("strace", "-qq", "-y", "-o", log.name, *words),
                   act=lambda place, child: act(place, child, log.name)), list(log)


def calls_from_main(lines):
    """Returns the system calls in lines of strace from `main` on, as (name, how often so far, line)."""
    counts, calls, is_main = {}, [], False
    for line in lines:
        call = line.split("(")[0]
        counts[call] = counts.get(call, 0) + 1
        is_main = is_main or FIRST_OF_MAIN.match(line)
        if is_main and call.isidentifier():
            calls.append((call, counts[call], line))
    return calls


@functools.lru_cache(None)
def calls_of_main(case):
    """Returns the system calls of a run of a case."""
    report, lines = trace(case)
    expect_none([report])
    return calls_from_main(lines)
