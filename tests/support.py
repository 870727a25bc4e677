"""Runs of tavrofuse, each in a folder and an environment of its own, and what must hold after them."""
import contextlib
import ctypes
import dataclasses
import os
import pathlib
import re
import shlex
import shutil
import signal
import struct
import subprocess
import tempfile
import time

import pytest

HERE = pathlib.Path(__file__).resolve().parent
COPY = 'exec cp "$in" "$out"'
TEMPORARY = ("-fatbin=inc",)
KEPT = TEMPORARY + ("-create=fat",)
OUTPUT = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
ENDING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT, signal.SIGXCPU)

# The children begin with what a login shell gives them.
os.umask(0o022)
signal.pthread_sigmask(signal.SIG_SETMASK, ())
for number in ENDING_SIGNALS:
    if signal.getsignal(number) == signal.SIG_IGN:
        signal.signal(number, signal.SIG_DFL)
# Children that a run leaves become those of this process, which so gets to know of them.
ctypes.CDLL(None).prctl(36, 1)  # PR_SET_CHILD_SUBREAPER


def first_that_works(*wrappers, command):
    """Returns the first of the wrappers under which the kernel lets the command run, or ()."""
    for wrapper in wrappers:
        if subprocess.run((*wrapper, "sh", "-c", command), **OUTPUT).returncode == 0:
            return wrapper
    return ()


PRIVATE_MOUNTS = first_that_works(("unshare", "-rm"), ("unshare", "-m"),
                                  command="mount -t tmpfs none /tmp")


@dataclasses.dataclass(frozen=True, eq=False)
class Case:
    """A run, and what it must come to."""
    name: str
    args: tuple = TEMPORARY
    bundler: str = COPY         # what it does, in the shell's words
    before: str = ""            # for a shell that then runs "$@", the tool with its arguments
    env: dict = dataclasses.field(default_factory=dict)
    image: bool = True          # whether one is given
    size: int = 1001            # of the image, in bytes
    share: float = 1            # of the image that the bundler puts into the fat binary
    status: tuple = (0, 1)
    output: str = ""            # pattern of what is printed with status 0
    error: str = r"\S"          # and with status 1
    may_leave_files: bool = False
    older: bytes = b""          # content of the include file before the run; empty: there is none


def kept_and_temporary(cases):
    """Each case twice: with a fat binary that is kept, and with a temporary one."""
    return [dataclasses.replace(case, name="%s, %s fat binary" % (case.name, kind), args=args)
            for case in cases for kind, args in (("kept", KEPT), ("temporary", TEMPORARY))]


def read(file):
    """Returns the bytes of a file; None for what is none, as a device may have no end."""
    return pathlib.Path(file).read_bytes() if os.path.isfile(file) else None


def include_text(fat, is_link=False):
    """Returns the include file of a fat binary, made from the one on record."""
    padded = fat + bytes(-len(fat) % 8)
    count = len(padded) // 8
    words = ["0x%016x" % word for word in struct.unpack("<%dQ" % count, padded)]
    lines = ['".quad %s\\n"\n' % ",".join(words[at:at + 4]) for at in range(0, count, 4)]
    text = read(HERE / "program/expected" / ("40_bytes%s.inc" % ("_link" * is_link))).decode()
    text = text.replace("fatbinData[5]", "fatbinData[%d]" % count)
    return (text[:text.index('".quad')] + "".join(lines) + text[text.index('".text'):]).encode()


def difference(name, actual, expected):
    """Tells where a file differs from what it should hold; empty where it does not."""
    if actual == expected:
        return ""
    if actual is None:
        return "%s is missing" % name
    at = len(os.path.commonprefix((actual, expected)))
    line = expected.count(b"\n", 0, at)
    shown = [(text.split(b"\n")[line:] or [b""])[0][:200] for text in (expected, actual)]
    return "%s has %d bytes (expected: %d) and differs from byte %d on, in line %d:\n" % (
        name, len(actual), len(expected), at, line + 1) + "  expected: %r\n  actual:   %r" % (*shown,)


def stop_session(session):
    """Returns the processes that are left of a session, as texts; they are ended."""
    end = time.monotonic() + 2  # seconds, for one that was killed to vanish
    while True:
        left = {}
        for number in filter(str.isdigit, os.listdir("/proc")):
            try:
                if os.getsid(int(number)) == session:
                    left[int(number)] = "%s %r" % (number, read("/proc/%s/cmdline" % number))
                    os.waitpid(int(number), os.WNOHANG)
            except OSError:  # it has just ended, or is not a child yet
                pass
        if not left or time.monotonic() > end:
            break
        time.sleep(0.005)
    for number in left:
        os.kill(number, signal.SIGKILL)
    return left.values()


class Place(tempfile.TemporaryDirectory):
    """A folder for one run or several, with an image and a bundler. Its name is the image's stem."""
    tool = None
    under = ()  # the words before a command of the user

    def __init__(self, size=1001):
        super().__init__(prefix="tavrofuse_robustness_", dir="/tmp")
        os.chmod(self.name, 0o777)
        self.stem, self.image = os.path.basename(self.name), os.urandom(size)
        self.path(self.stem + ".o").write_bytes(self.image)
        shutil.copytree(HERE / "stand_in", self.path("bundler"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        subprocess.run(["rm", "-rf", *self.leftovers()], check=True)
        self.cleanup()

    def path(self, name):
        return pathlib.Path(self.name, name)

    def leftovers(self):
        """Returns the temporary files and the drafts that are left of the runs."""
        left = [*pathlib.Path("/tmp").glob(self.stem + "-*"), *self.path("").rglob(".tavrofuse-*")]
        return set(map(str, left))

    def environment(self, case):
        names = {"PATH": os.environ["PATH"], "ROCM_PATH": ".", "HIP_CLANG_PATH": "bundler",
                 "FOLDER": self.name, "MALLOC_PERTURB_": "85", "BUNDLER": case.bundler, **case.env}
        return {name: value for name, value in names.items() if value is not None}

    def start(self, case, wrapper=(), **options):
        """Returns the child of a run, in a session of its own unless the options say otherwise."""
        command = [*wrapper, self.tool, *case.args]
        command += ["--image3=kind=elf,sm=gfx908,file=%s.o" % self.stem] if case.image else []
        if case.before:
            before = case.before + ("" if '"$@"' in case.before else ' && exec "$@"')
            command = ["sh", "-c", before, "sh", *command]
        options = {"start_new_session": True, **OUTPUT, **options}
        return subprocess.Popen(command, cwd=self.name, env=self.environment(case),
                                stdin=subprocess.DEVNULL, **options)

    def wrong_files(self, case):
        """Tells the files that are not what a run with status 0 has to leave."""
        fat = self.image[:int(case.share * len(self.image))] if case.image else b""
        wanted = {"-create": lambda: fat, "-fatbin": lambda: include_text(fat, "-link" in case.args)}
        files = [arg.split("=", 1) for arg in case.args if arg.startswith(tuple(wanted))]
        return [difference(name, read(self.path(name)), wanted[option]()) for option, name in files]

    def wrong_remains(self, case, status):
        """Tells the include files that are not as before a run with another status than 0."""
        for name in (arg.split("=", 1)[1] for arg in case.args if arg.startswith("-fatbin=")):
            left = read(self.path(name))
            # A signal that arrives at the very end may find the file complete.
            if (left or b"") != case.older and not (
                    status < 0 and left == include_text(self.image, "-link" in case.args)):
                yield difference(name, left, case.older)


def report(case, child, output, problems):
    """Returns a report of what went wrong in a run; empty where nothing did."""
    problems = [problem for problem in problems if problem]
    if not problems:
        return ""
    return "\n".join([
        case.name, "$ " + shlex.join(child.args)[:1000], "with a bundler that does: " + case.bundler,
        "status %s, after the output: %s" % (child.returncode, output[-1000:] or "none"),
        *problems])


def run(case, place=None, wrapper=(), act=lambda place, child: None):
    """Runs a case, in a place of its own or a shared one. Returns a report; empty: all is well.

    `act` is called during the run. It may return the time from which on the run has a second left."""
    is_shared = place is not None
    with contextlib.nullcontext(place) if place else Place(case.size) as place:
        if case.older:
            place.path("inc").write_bytes(case.older)
        child = place.start(case, wrapper)
        try:
            sent = act(place, child)
            output = child.communicate(timeout=30)[0].decode(errors="replace")
        except subprocess.TimeoutExpired:  # no run takes long
            os.killpg(child.pid, signal.SIGKILL)
            return report(case, child, child.communicate()[0].decode(errors="replace"), ["it hangs"])
        seconds = time.monotonic() - sent if sent else 0
        pattern = case.output if child.returncode == 0 else case.error
        return report(case, child, output, [
            seconds > 1 and "it took %.1f s to end" % seconds,
            child.returncode not in case.status and "the status should be of " + str(case.status),
            not re.search(pattern, output) and "the output should match " + pattern,
            *(place.wrong_files(case) if child.returncode == 0 else () if case.may_leave_files else
              place.wrong_remains(case, child.returncode)),
            *("left: " + file
              for file in (() if is_shared or case.may_leave_files else place.leftovers())),
            *("left running: " + process for process in stop_session(child.pid))])


def expect_none(reports):
    """Fails the test if one of the reports is not empty."""
    told = [text for text in reports if text]
    if told:
        pytest.fail("%d problems; the first ones:\n\n" % len(told) + "\n\n".join(told[:5]),
                    pytrace=False)
