"""Nobody reads a part of an include file, whatever ends the run that writes it."""
import os
import random
import signal
import time

import pytest

from support import PRIVATE_MOUNTS, Case, Place, expect_none, include_text, run

LARGE = 4000000  # bytes; writing so many takes some milliseconds
RUN = Case("run", status=(0,))
# After the tool, which has 5000 bytes for a file, a condition must hold.
THEN = '''; prlimit --fsize=5000:unlimited "$@"; status=$?; %s || exit 9; exit $status'''
LIFTED = 'ulimit -S -f unlimited; exec cp "$in" "$out"'
READ_ONLY_DIRECTORY = """mkdir disk; echo older >disk/inc; exec %s sh -c '
    mount --bind disk disk && mount --bind disk/inc disk/inc &&
    mount -o remount,bind,ro disk && exec "$@"' sh "$@" """ % " ".join(PRIVATE_MOUNTS)
AS_NOBODY = "setpriv --reuid=65534 --clear-groups " if os.getuid() == 0 else ""


@pytest.fixture(scope="module")
def large():
    with Place(LARGE) as place:
        place.whole = include_text(place.image)
        place.inc = place.path("inc")
        yield place


def test_killed_run_leaves_the_older_file_or_a_whole_one(large):
    for _ in range(20):
        large.inc.write_bytes(b"older")
        child = large.start(RUN)
        time.sleep(random.uniform(0, 0.03))
        os.killpg(child.pid, signal.SIGKILL)
        child.communicate()
        assert large.inc.read_bytes() in (b"older", large.whole)


def test_reader_sees_the_older_file_or_a_whole_one(large):
    seen = set()
    for _ in range(5):
        large.inc.write_bytes(b"older")
        child = large.start(RUN)
        while child.poll() is None:
            seen.add(large.inc.stat().st_size)
        assert child.returncode == 0
    assert seen == {len(b"older"), len(large.whole)}


def test_two_runs_leave_the_file_of_one_of_them(large):
    shorter = Case("shorter", bundler='head -c 3000000 "$in" >"$out"')
    for _ in range(6):
        children = [large.start(RUN), large.start(shorter)]
        assert [child.wait() for child in children] == [0, 0]
        assert large.inc.read_bytes() in (large.whole, include_text(large.image[:3000000]))


OWN_OUTPUT = '{ "$@" && echo more; } >>inc'
OUTPUT_OF_THE_CALLER = 'exec 3>>inc; ln -s /proc/$$/fd/3 callers; (exec "$@" 3>&-) && echo more >&3'


@pytest.mark.parametrize("name, before", [
    *((name, OWN_OUTPUT) for name in ("/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "link", "inc")),
    ("callers", OUTPUT_OF_THE_CALLER)])
def test_what_goes_to_the_same_stream_afterwards_is_kept(name, before):
    with Place() as place:
        place.path("link").symlink_to(os.path.relpath("/proc/self/fd/1", place.name))
        case = Case(name, args=("-fatbin=" + name,), before=before)
        assert place.start(case).wait() == 0
        assert place.path("inc").read_bytes() == include_text(place.image) + b"more\n"


def cases(_):
    def made(name, before, **options):
        return Case(name, before=before, status=(0,), **options)

    def failed(name, before, then, error, **options):
        return Case(name, before=before + THEN % then, bundler=LIFTED, size=100000, status=(1,),
                    error=error, **options)
    too_large = "Failed to write inc: write file: File too large"
    is_older = '[ "$(cat %s)" = older ]'
    return [
        made("file in a directory that may not be written", args=("-fatbin=locked/inc",), before="""
             mkdir locked; echo older >locked/inc; chmod 666 locked/inc; chmod 111 locked;
             exec %s"$@" """ % AS_NOBODY),
        made("writable file of another user in a shared directory", args=("-fatbin=shared/inc",),
             before="""mkdir shared; echo older >shared/inc; chmod 666 shared/inc;
             chmod 1777 shared; exec %s"$@" """ % AS_NOBODY),
        *([made("mounted file in a read-only directory", args=("-fatbin=disk/inc",),
                before=READ_ONLY_DIRECTORY)] if PRIVATE_MOUNTS else []),
        failed("new file", ":", "! [ -e inc ]", too_large),
        failed("older file", ":", is_older % "inc", too_large, older=b"older\n"),
        failed("link to a file", "mv inc target; ln -s target inc",
               "[ -L inc ] && " + is_older % "target", too_large, older=b"older\n"),
        failed("link to nothing", "ln -s target inc", "[ -L inc ] && [ -s target ]", too_large,
               may_leave_files=True),
        failed("link to the own output", "ln -s ../../proc/self/fd/1 inc; exec >log",
               "[ -L inc ] && [ -s log ]", too_large, may_leave_files=True),
        # With a device of its own, /dev/full is safe from a faulty tool.
        failed("device", "mknod inc c 1 7 && : >inc || ln -sf /dev/full inc", "[ -c inc ]",
               "Failed to write inc: write file: No space left"),
        failed("pipe without a reader", "mkfifo inc; head -c 10 inc >start & :", "[ -p inc ]",
               "Failed to write inc: write file: Broken pipe"),
        failed("file that runs", 'cp "$(command -v sleep)" inc; ./inc 60 & '
               'until [ /proc/$!/exe -ef inc ]; do :; done', "kill $! && [ -x inc ]",
               "Failed to write inc: open file: Text file busy", may_leave_files=True)]


def test_include_file(case):
    expect_none([run(case)])
