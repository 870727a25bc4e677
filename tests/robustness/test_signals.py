"""Signals that end a run: nothing is left, and the run ends by the signal, within a second."""
import dataclasses
import functools
import os
import pathlib
import random
import signal
import subprocess
import time

import pytest

from support import COPY, ENDING_SIGNALS, OUTPUT, Case, Place, expect_none, read, run
from tracing import calls_from_main, trace

# strace as a process of its own: the tool is the child of the test, with the status that it ends by.
DETACHED = ("-DDD",)
DEAF = "trap '' INT TERM HUP QUIT; "
WAITS = 'echo unfinished >"$out"; : >ready; exec sleep 60'
BUNDLERS = {"quick": COPY, "waiting": WAITS, "deaf": DEAF + WAITS}
TARGETS = {"the tool": os.kill, "the group": os.killpg}


def await_true(condition):
    """Returns whether the condition came true within some seconds."""
    end = time.monotonic() + 5
    while not condition() and time.monotonic() < end:
        time.sleep(0.001)
    return condition()


def is_asleep(child):
    return pathlib.Path("/proc/%d/stat" % child.pid).read_text().rsplit(")")[-1].split()[0] == "S"


@functools.lru_cache(None)
def calls_until_wait(bundler):
    """Returns the system calls of a run; with a bundler that waits, only those up to the waiting."""
    def kill_in_wait(place, child, _):
        await_true(lambda: place.path("ready").exists() and is_asleep(child))
        os.killpg(child.pid, signal.SIGKILL)
    case = Case("trace", bundler=BUNDLERS[bundler])
    act = {} if bundler == "quick" else {"act": kill_in_wait}
    report, lines = trace(case, *DETACHED, **act)
    calls = [call for call in calls_from_main(lines) if call[0] != "exit_group"]
    expect_none([not calls and report])
    return calls


def signal_at(call, number, line, bundler, target, sent_signal):
    """Returns whether a run made the call, and its report: it stops there, and finds the signal sent."""
    def send_when_stopped(place, child, log):
        if not await_true(lambda: child.poll() is not None or b"stopped by" in read(log)):
            os.killpg(child.pid, signal.SIGKILL)
        elif child.poll() is None:
            # What somebody else has just put in its place is not the run's to remove.
            place.path("foreign").write_bytes(case.older)
            os.replace(place.path("foreign"), place.path("inc"))
            TARGETS[target](child.pid, sent_signal)
            os.kill(child.pid, signal.SIGCONT)
            return time.monotonic()
        return None
    case = Case("signal at " + line.strip()[:150], bundler=BUNDLERS[bundler], older=b"an older file",
                status=(-sent_signal, 0), error="")
    for _ in range(3):  # how often some are called depends on time
        report, lines = trace(case, *DETACHED, "-e", "trace=" + call, "-e",
                              "inject=%s:signal=STOP:when=%d" % (call, number), act=send_when_stopped)
        if any("stopped by" in line for line in lines):
            return True, report
    return False, report


@pytest.mark.parametrize("target", TARGETS)
@pytest.mark.parametrize("bundler", BUNDLERS)
@pytest.mark.parametrize("sent_signal", ENDING_SIGNALS, ids=lambda sent: sent.name)
def test_signal_at_each_system_call(sent_signal, bundler, target, request):
    step = 1 if request.config.getoption("full") else len(ENDING_SIGNALS)
    calls = calls_until_wait(bundler)[ENDING_SIGNALS.index(sent_signal) % step::step]
    are_made, reports = zip(*(signal_at(*call, bundler, target, sent_signal) for call in calls))
    expect_none([*reports, not any(are_made) and "no run made any of the calls: %s" % calls])


ALL_ENDING = signal.valid_signals() - {
    signal.SIGKILL, signal.SIGSTOP, signal.SIGTSTP, signal.SIGTTIN, signal.SIGTTOU, signal.SIGCONT,
    signal.SIGCHLD, signal.SIGURG, signal.SIGWINCH}


@pytest.mark.parametrize("number", sorted(ALL_ENDING))
def test_each_signal_that_ends_a_run_cleans_up(number):
    expect_none([run(Case("signal", status=(-number,), error="", before='ulimit -c 0; exec "$@"',
                          bundler='echo >"$out"; exec >&- 2>&-; kill -%d $PPID; exec sleep 60' % number))])


# A new group in the session of the test, as a shell's jobs are: a session of its own can't be stopped.
@pytest.mark.parametrize("stop", [signal.SIGTSTP, signal.SIGTTIN, signal.SIGTTOU])
def test_stopped_run_goes_on(stop, request):
    with Place() as place:
        for _ in range(400 if request.config.getoption("full") else 40):
            child = place.start(Case("stopped"), start_new_session=False, preexec_fn=os.setpgrp)
            time.sleep(random.uniform(0, 0.003))
            os.killpg(child.pid, stop)
            flags = os.WSTOPPED | os.WEXITED | os.WNOWAIT | os.WNOHANG
            is_stopped = await_true(lambda: os.waitid(os.P_PID, child.pid, flags))
            os.killpg(child.pid, signal.SIGCONT)
            assert is_stopped, "it hangs"
            assert child.wait(30) == 0
        assert place.leftovers() == set()


def test_file_of_the_user_stays():
    with Place() as place:
        case = Case("kept", args=("-fatbin=inc", "-create=fat"), status=(-signal.SIGTERM,), error="",
                    bundler='cp "$in" "$out"; kill -TERM $PPID; exec sleep 60')
        expect_none([run(case, place), *place.leftovers()])
        expect_none([not place.path("fat").exists() and "fat is gone"])


# As llvm-objcopy is one, which writes the file.
def test_child_of_the_bundler_does_not_write_later():
    child = '(while [ -d /proc/$$ ]; do :; done; echo late >"$out") & '
    expect_none([run(Case("late child", status=(-signal.SIGTERM,), error="",
                          bundler=child + "kill -TERM $PPID; exec sleep 60"))])


@pytest.mark.parametrize("before", [
    "exec >&- 2>&-; sleep 60 & ", "n=300; while [ $((n -= 1)) -gt 0 ]; do sleep 60 & done; "])
def test_command_of_a_script_does_not_write_later(before):
    script = before + 'kill -TERM $PPID; sleep 60; echo late >"$out"'
    expect_none([run(Case("script", status=(-signal.SIGTERM,), error="", bundler=script))])


@pytest.mark.parametrize("name, before, bundler", [
    ("handed down", "sleep 60 >/dev/null 2>&1 & echo $! >spared", ":"),
    ("daemon", ":", "setsid sleep 60 >/dev/null 2>&1 & echo $! >spared")])
def test_what_is_not_the_bundlers_is_spared(name, before, bundler):
    with Place() as place:
        child = place.start(Case(name, before=before + '; exec "$@"',
                                 bundler=bundler + "; kill -TERM $PPID; exec sleep 60"))
        assert child.wait() == -signal.SIGTERM
        spared = int(place.path("spared").read_text())
        assert os.waitid(os.P_PID, spared, os.WEXITED | os.WNOHANG) is None
        os.kill(spared, signal.SIGKILL)
        os.waitpid(spared, 0)


@pytest.mark.parametrize("ignored", ["INT", "TERM", "HUP", "QUIT", "INT,TERM,HUP,QUIT"])
def test_ignored_signals_stay_ignored(ignored):
    kill = "; ".join("kill -%s $PPID $$" % name for name in ignored.split(","))
    expect_none([run(Case(ignored, before='exec env --ignore-signal=%s "$@"' % ignored,
                          bundler="%s; %s" % (kill, COPY), status=(0,)))])


@pytest.mark.parametrize("how", ["", "env --ignore-signal=INT,HUP", "env --block-signal=TERM,QUIT",
                                 "env --ignore-signal=PIPE,XFSZ"])
def test_bundler_inherits_what_it_would_without_the_tool(how):
    look = 'grep -E "^Sig(Blk|Ign|Cgt)|^ShdPnd" /proc/self/status; ls -l /proc/self/fd | wc -l'
    with Place() as place:
        case = Case("through the tool", bundler=look + '; cp "$in" "$out"', status=(0,),
                    before='exec %s "$@"' % how)
        bundler = (*how.split(), "bundler/clang-offload-bundler")
        alone = subprocess.run(bundler, cwd=place.name, stdin=subprocess.DEVNULL, text=True, **OUTPUT,
                               env=place.environment(Case("alone", bundler=look))).stdout
        expect_none([run(dataclasses.replace(case, output=r"\A%s\Z" % alone), place)])
