#!/usr/bin/env python3
"""What becomes of tavrofuse when its surroundings fail it."""
import argparse
import concurrent.futures
import configparser
import contextlib
import ctypes
import os
import pathlib
import re
import signal
import struct
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
GOOD = 'exec cp "$in" "$out"'
TEMPORARY = ("-fatbin=inc",)
KEPT = TEMPORARY + ("-create=fat",)
OUTPUT = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}

# Calls whose failure ends a run without a word: those around the bundler, and the console's.
WITHOUT_WORDS = re.compile(
    r"(pipe2|v?fork|clone|pselect6|wait4|dup2|execve|fcntl)\(|[a-z]+\(\d+<pipe:|write\([12]<")
# What can't fail; and a pipe's end that stays open, as under strace but never in the kernel.
NOT_TRIED = re.compile(r"exit_group\(|close\(\d+<pipe:")
FIRST_OF_MAIN = re.compile(r"fcntl\(0\b.*F_GETFD")
# What the child of `fork` calls before it is the bundler, and what makes strace look there.
CHILD_CALLS = (("dup2", "1"), ("dup2", "2"), ("execve", "1"))
CHILD_WORDS = {"dup2": ("-f",), "execve": ("-f", "-P", "bundler/clang-offload-bundler")}

TEXTS = ("%n%s%n", "a\nb", "\033[2J\033]0;x\a", "$(touch inc)", "; rm -rf .", "../../..", "\udcff",
         "x" * 100000, "y" * 131000)
VARIABLES = "ROCM_PATH HIP_CLANG_PATH TAVROSM_TARGET TZ LC_ALL TMPDIR GLIBC_TUNABLES".split()
COMMAND_LINES = (
    "--TEXT", "-fatbin=inc -create=fat --cicc-cmdline=TEXT", "-fatbin=gone/TEXT", "-fatbin=TEXT",
    "-create=gone/TEXT", "-fatbin=inc --offload-arch=TEXT", "-create=x --image3=kind=elf,s,f=TEXT")

# What the tool hands to the system as names of files.
TOUCHED = ("looks at BUNDLER", "looks at CLANG", "looks at FAT", "looks at ROCM",
           "opens /etc/localtime", "opens FAT", "opens INC")
NAMES = {r"/tmp/tavrofuse_robustness_\w+-\w+-\w{16}\.fatbin": "FAT", r"inc": "INC", r"\.": "ROCM",
         r"bundler/clang-offload-bundler": "BUNDLER", r"bundler": "CLANG"}

# Children that a run leaves become those of this process, which so gets to know of them.
ctypes.CDLL(None).prctl(36, 1)  # PR_SET_CHILD_SUBREAPER


def read(file):
    # Not a device, which may have no end.
    return pathlib.Path(file).read_bytes() if os.path.isfile(file) else None


# The include file of the fat binary, made from the example of the program's other tests.
def include_text(fat, is_link):
    padded = fat + bytes(-len(fat) % 8)
    count = len(padded) // 8
    words = ["0x%016x" % word for word in struct.unpack("<%dQ" % count, padded)]
    lines = ['".quad %s\\n"\n' % ",".join(words[at:at + 4]) for at in range(0, count, 4)]
    text = read(HERE + "/../program/expected/40_bytes.inc").decode()
    text = text.replace("fatbinData[5]", "fatbinData[%d]" % count)
    if is_link:
        text = text.replace(".hip_fatbin", ".hip_dlink_fatbin")
        text = text.replace("1, fatbinData, 0 }", "2, fatbinData, (void**)__cudaPrelinkedFatbins }")
    return (text[:text.index('".quad')] + "".join(lines) + text[text.index('".text'):]).encode()


# Whether a process of the group is there, and stays.
def has_children(group):
    end = time.monotonic() + 2  # seconds, for one that was killed to vanish
    while time.monotonic() < end:
        try:
            if os.waitpid(-group, os.WNOHANG)[0] == 0:
                time.sleep(0.005)
        except ChildProcessError:
            return False
    os.killpg(group, signal.SIGKILL)
    return True


# A folder for one run or several, with an image and a bundler. Its name is the image's stem.
class Place(tempfile.TemporaryDirectory):
    def __init__(self, size=1001):
        super().__init__(prefix="tavrofuse_robustness_", dir="/tmp")
        os.chmod(self.name, 0o777)
        self.stem, self.image = os.path.basename(self.name), os.urandom(size)
        self.left_alone = set()
        self.path(self.stem + ".o").write_bytes(self.image)
        os.mkdir(self.path("bundler"))
        # A copy of its own would be open for writing in other runs' children, and so be no program.
        os.link(Place.bundler, self.path("bundler/clang-offload-bundler"))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        subprocess.run(["rm", "-rf", *self.leftovers(), *self.left_alone], check=True)
        self.cleanup()

    def path(self, name):
        return pathlib.Path(self.name, name)

    def leftovers(self):
        return set(map(str, pathlib.Path("/tmp").glob(self.stem + "-*"))) - self.left_alone

    def environment(self, changes):
        names = {"PATH": os.environ["PATH"], "ROCM_PATH": ".", "HIP_CLANG_PATH": "bundler",
                 "FOLDER": self.name, "MALLOC_PERTURB_": "85", "BUNDLER": GOOD, **changes}
        return {name: value for name, value in names.items() if value is not None}


# One run, in a place of its own or a shared one. Returns what it broke of the promise.
def broken(place=None, size=1001, **options):
    with contextlib.nullcontext(place) if place else Place(size) as where:
        return run(where, place is None, **options)


# ahead: for the shell that then runs "$@". line, says: patterns of the output with status 1
# and 0. fat: the share of the image that is right.
def run(place, is_alone, args=TEMPORARY, bundler=GOOD, env={}, ahead="", wrapper=(), status=(0, 1),
        line=r"\S", says="", fat=1, image=True):
    command = [*wrapper, Place.tool, *args]
    command += ["--image3=kind=elf,sm=gfx908,file=%s.o" % place.stem] if image else []
    if ahead:
        ahead += "" if '"$@"' in ahead else ' && exec "$@"'
        command = ["sh", "-c", ahead, "sh", *command]
    child = subprocess.Popen(
        command, cwd=place.name, env=place.environment({"BUNDLER": bundler, **env}),
        start_new_session=True, stdin=subprocess.DEVNULL, **OUTPUT)
    try:
        output = child.communicate(timeout=30)[0].decode(errors="replace")
    except subprocess.TimeoutExpired:  # no run takes long
        os.killpg(child.pid, signal.SIGKILL)
        child.communicate()
        return "hangs"
    right = place.image[:int(fat * len(place.image))] if image else b""
    wanted = {"-create": lambda: right, "-fatbin": lambda: include_text(right, "-link" in args)}
    is_good = child.returncode == 0
    files = [arg.split("=", 1) for arg in args if is_good and arg.startswith(tuple(wanted))]
    wrong = ["wrong " + file for name, file in files if read(place.path(file)) != wanted[name]()]
    return ", ".join(wrong + [words for is_broken, words in (
        (child.returncode not in status, "status %d: %r" % (child.returncode, output[-300:])),
        (not re.search(says if is_good else line, output), "no such line: %r" % output[-300:]),
        (is_alone and place.leftovers(), "left a file"),
        (has_children(child.pid), "left a child")) if is_broken])


def read_table(name):
    table = configparser.ConfigParser(interpolation=None, delimiters="=")
    table.read(HERE + "/" + name)
    return table


# The cases of a table, as (name, arguments of `broken`).
def read_cases(name, is_full):
    convert = {"args": str.split, "size": int, "image": bool, "fat": float,
               "status": lambda text: [int(text)]}
    table = read_table(name)
    for case in table.sections():
        options = dict(table[case])
        quick, full = options.pop("quick", "-"), options.pop("full", "-")
        for words in (full if is_full else quick).split():
            first, _, last = words.partition("..")
            for number in range(int(first), int(last or first) + 1) if first.isdigit() else words:
                fill = {key: convert.get(key, str)(value.replace("NUMBER", str(number)))
                        for key, value in options.items()}
                for args in (fill.pop("args", None),) if "args" in fill else (KEPT, TEMPORARY):
                    yield case.replace("NUMBER", str(number)), dict(fill, args=args)


def each(function, cases, at_once=os.cpu_count()):
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        return list(pool.map(lambda case: function(*case), cases))


def run_case(name, options):
    problem = broken(**options)
    return problem and "%.60r, %s: %s" % (name, " ".join(options.get("args", ()))[:60], problem)


# What a run under strace broke, and the lines of strace.
def trace(job, *words):
    with tempfile.NamedTemporaryFile("r") as log:
        problem = broken(**job, wrapper=("strace", "-qq", "-y", "-o", log.name) + words)
        return problem, log.read().splitlines()


def find_faults(name, job, is_full):
    problem, lines = trace(job)
    assert not problem, problem
    start = next(at for at, line in enumerate(lines) if FIRST_OF_MAIN.match(line))
    errors, counts = read_table("faults.ini")["errors"], {}
    for at, line in enumerate(lines):
        call = line.split("(")[0]
        counts[call] = counts.get(call, 0) + 1
        if at >= start and call.isidentifier() and not NOT_TRIED.match(line):
            for error in errors.get(call, "EIO").split()[:None if is_full else 2]:
                yield name, job, call, str(counts[call]), error, line
                if is_full and call != "close" and error != "EINTR":
                    yield name, job, call, "%d+" % counts[call], error, line  # from then on
    for call, count in CHILD_CALLS if "vfork" in counts or "clone" in counts else ():
        for error in errors[call].split():
            yield name, job, call, count, error, call + "( of the child"


def try_fault(name, job, call, count, error, line):
    fault = "%s:%s:when=%s" % (call, "retval=0" if error == "0" else "error=" + error, count)
    if WITHOUT_WORDS.match(line) or "+" in count:
        job = dict(job, line="")
    problem, lines = trace(job, "-e", "trace=" + call, "-e", "inject=" + fault,
                           *CHILD_WORDS.get(call, ()))
    if not any("INJECTED" in text for text in lines):
        problem = "not reached"
    return problem and "%s, %s: %s\n    %s" % (name, fault, problem, line[:150])


# Every system call of the tool's own fails, from main on; so do those of its child.
def faults(is_full):
    jobs = read_cases("jobs.ini", is_full)
    cases = [case for job in jobs for case in find_faults(*job, is_full)]
    results = list(zip(cases, each(try_fault, cases)))
    explained = sum(1 for case, problem in results if problem and case[2] == "unlink")
    print("system calls:", *sorted({case[2] for case in cases}))
    print("explained: %d faults of unlink: what can't be deleted is left" % explained)
    return [problem if case[2] != "unlink" else "" for case, problem in results]


def run_table(name, is_full):
    return each(run_case, read_cases(name, is_full))


# Many runs at once, of the same stem and in the same seconds; then the same by ninja.
def load(is_full):
    numbers = range(2000 if is_full else 200)
    count = len(numbers)
    with Place() as place:
        options = {"bundler": 'echo "$out" >>names; ' + GOOD, "place": place, "status": (0,)}
        cases = [("run", {**options, "args": ("-fatbin=inc.%d" % n,)}) for n in numbers]
        problems = each(run_case, cases, 64)
        problems.append("" if len(set(read(place.path("names")).split())) == count else "runs met")
        rule = "rule embed\n command = %s --image3=kind=elf,s,f=$in -fatbin=$out\n" % Place.tool
        steps = ("build ninja.%d: embed %s.o\n" % (n, place.stem) for n in numbers)
        place.path("build.ninja").write_text(rule + "".join(steps))
        for expected in ("[%d/%d]" % (count, count), "no work to do"):
            words = subprocess.run(["ninja", "-j64"], cwd=place.name, env=place.environment({}),
                                   **OUTPUT, text=True, timeout=600).stdout
            problems.append("" if expected in words else "ninja: " + words[-300:])
        made, text = (place.path("ninja.%d" % n) for n in numbers), include_text(place.image, False)
        problems += ["" if read(file) == text else "wrong %s" % file for file in made]
        return problems + [" ".join(place.leftovers())]


# Puts another user's links, folders and pipes under the names that can be guessed.
def plant(place):
    place.path("victim").write_bytes(b"precious")
    makers = (lambda name: os.symlink(place.path("victim"), name), os.mkdir, os.mkfifo)
    for second in range(60):
        at = time.localtime(time.time() + second)[1:6]
        for number, end in enumerate(("", ".fatbin", "-%016x.fatbin" % 0)):
            name = "/tmp/%s-%s%s" % (place.stem, "%x%x%x%x%x" % at, end)
            makers[(second + number) % 3](name)
            place.left_alone.add(name)
            os.lchown(name, *((65534, 65534) if os.getuid() == 0 else (-1, -1)))


# An unfriendly /tmp, environment and command line; closed standard streams.
def surroundings(is_full):
    cases = [(name, {"env": {name: text}}) for name in VARIABLES
             for text in (None, "", ":/dev/zero") + TEXTS]
    cases += [(text, {"args": [word.replace("TEXT", text) for word in words.split()]})
              for text in TEXTS for words in COMMAND_LINES]
    cases.append(("1 MB", {"args": KEPT + ("--image3", "x" * 100) * 10000, "status": (0,)}))
    for closed in range(8):
        streams = (word for fd, word in enumerate(("<&-", ">&-", "2>&-")) if closed >> fd & 1)
        ahead = 'exec "$@" ' + " ".join(streams)
        cases += [(name + ahead, {**job, "ahead": ahead, "line": ""})
                  for name, job in read_cases("jobs.ini", True)]
    with Place() as place:
        plant(place)
        for n in range(100 if is_full else 20):
            args = ("-fatbin=inc.%d" % n, "-link")[:1 + n % 2]
            cases.append(("planted", {"args": args, "place": place, "status": (0,)}))
        problems = each(run_case, cases) + [" ".join(place.leftovers())]
        problems.append("" if read(place.path("victim")) == b"precious" else "victim overwritten")
        return problems


# The same bytes, whoever runs it, where and when; only the documented files; the same tool.
def determinism(is_full):
    return run_table("determinism.ini", is_full) + [compare_touched(), compare_builds()]


def compare_touched():
    problem, lines = trace({}, "-e", "trace=%file,fcntl")
    start = next(at for at, line in enumerate(lines) if FIRST_OF_MAIN.match(line))
    touched = set()
    named = re.compile(r'^(\w+)\((?:AT_FDCWD[^,]*, )?"([^"]+)"', re.M)
    for call, name in named.findall("\n".join(lines[start:])):
        name = next((NAMES[pattern] for pattern in NAMES if re.fullmatch(pattern, name)), name)
        touched.add(("opens " if call.startswith("open") else "looks at ") + name)
    print("\n".join(sorted(touched)))
    return problem or ("" if sorted(touched) == sorted(TOUCHED) else "other files than documented")


def compare_builds():
    with tempfile.TemporaryDirectory() as folder:
        words = ["sh", HERE + "/two_builds.sh", HERE + "/../..", folder]
        builds = subprocess.run(words, **OUTPUT, text=True)
        return builds.returncode and "two builds of the same source: " + builds.stdout[-300:]


def main():
    parts = {"faults": faults, "disks": lambda is_full: run_table("disks.ini", is_full),
             "bundlers": lambda is_full: run_table("bundlers.ini", is_full), "load": load,
             "surroundings": surroundings, "determinism": determinism}
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("part", nargs="*", help="of %s; all by default" % ", ".join(parts))
    parser.add_argument("--tool", required=True, help="the tavrofuse to run")
    parser.add_argument("--full", action="store_true", help="all, not a part of some seconds")
    arguments = parser.parse_args()
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        Place.tool, Place.bundler = os.path.abspath(arguments.tool), folder + "/bundler"
        subprocess.run(["install", HERE + "/bundler.sh", Place.bundler], check=True)
        for name in arguments.part or parts:
            results = parts[name](arguments.full)
            problems = [result for result in results if result]
            failed += len(problems)
            counts = (name, len(results), len(problems))
            print(*problems, "%s: %d tried, %d broke the promise" % counts, sep="\n", flush=True)
    return min(failed, 1)


if __name__ == "__main__":
    sys.exit(main())
