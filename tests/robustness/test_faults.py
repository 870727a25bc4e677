"""Every system call of the tool's own fails, from `main` on."""
import dataclasses
import re

import pytest

from jobs import JOBS, QUICK
from support import expect_none
from tracing import calls_of_main, trace

# What the kernel can answer; EIO where nothing is said. A number is a result; brk does not fail, it
# leaves the break alone.
ERRORS = {name: errors.split() for names, errors in {
    "access newfstatat readlink": "EACCES EIO ENOMEM",
    "brk": "0",
    "clone fork vfork": "EAGAIN ENOMEM",
    "close": "EIO EINTR ENOSPC",
    "fcntl": "EBADF EMFILE",
    "getrandom": "ENOSYS EAGAIN EINTR",
    "lseek rt_sigaction": "EINVAL",
    "madvise mmap": "ENOMEM EAGAIN",
    "mprotect mremap munmap": "ENOMEM",
    "openat": "EMFILE ENOMEM ENOSPC EACCES EINTR EIO",
    "pipe2": "EMFILE ENFILE",
    "poll ppoll": "EINTR ENOMEM",
    "read": "EIO 0 EINTR EAGAIN",
    "renameat": "EBUSY EIO EACCES ENOSPC",
    "unlink": "EIO EACCES",
    "wait4": "EINTR ECHILD",
    "write": "ENOSPC EIO EINTR EAGAIN EFBIG EDQUOT"}.items() for name in names.split()}
# Calls whose failure ends a run without a word: those around the bundler, and the console's.
WITHOUT_WORDS = re.compile(
    r"(pipe2|clone3?|vfork|p?poll|wait4|waitid|fcntl|rt_sig\w+|kill)\("
    r"|[a-z]+\(\d+<pipe:|write\([12]<")
# What can't fail; and a pipe's end that stays open, as under strace but never in the kernel.
NOT_TRIED = re.compile(r"exit_group\(|close\(\d+<pipe:")


def faults(job, call, is_full):
    """Returns the faults of a system call in a job, as (call, when, error, line of strace)."""
    found = []
    for name, number, line in calls_of_main(job):
        if (name == call or call == "others" and name not in ERRORS) and not NOT_TRIED.match(line):
            for error in ERRORS.get(name, ["EIO"])[:None if is_full else 2]:
                found.append((name, str(number), error, line))
                if is_full and name != "close" and error != "EINTR":
                    found.append((name, "%d+" % number, error, line))  # from then on
    return found if is_full else found[::len(found) // 20 + 1]


def try_fault(job, call, when, error, line):
    """Returns whether a run made the call, and its report."""
    fault = "%s:%s:when=%s" % (call, "retval=0" if error == "0" else "error=" + error, when)
    may_be_silent = WITHOUT_WORDS.match(line) or "+" in when
    job = dataclasses.replace(job, error="" if may_be_silent else job.error,
                              may_leave_files=call.startswith("unlink"))
    for _ in range(3):  # how often some are called depends on time
        report, lines = trace(job, "-e", "trace=" + call, "-e", "inject=" + fault)
        is_made = any("INJECTED" in text for text in lines)
        if is_made:
            break
    return is_made, report and "%s\nwhen this failed as %s: %s" % (report, fault, line)


@pytest.mark.parametrize("call", [*ERRORS, "others"])
def test_system_call_fails(call, request):
    is_full = request.config.getoption("full")
    results = [try_fault(job, *fault) for job in (JOBS if is_full else QUICK)
               for fault in faults(job, call, is_full)]
    expect_none(report for _, report in results)
    expect_none([results and not any(is_made for is_made, _ in results) and "no run makes this call any more"])
