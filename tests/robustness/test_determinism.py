"""The same bytes, whoever runs the tool, where and when; only the documented files; the same tool."""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from support import HERE, OTHER_USER, OUTPUT, Case, expect_none, kept_and_temporary, run
from tracing import FIRST_OF_MAIN, trace

# What the tool hands to the system as names of files.
TOUCHED = {"looks at BUNDLER", "looks at CLANG", "looks at FAT", "looks at ROCM",
           "opens /etc/localtime", "opens FAT", "opens INC"}
NAMES = {r"/tmp/tavrofuse_robustness_\w+-\w+-\w{16}\.fatbin": "FAT", r"inc": "INC", r"\.": "ROCM",
         r"bundler/clang-offload-bundler": "BUNDLER", r"bundler": "CLANG"}


# First, as it takes longest.
def test_two_builds_make_the_same_tool():
    tools, source = [], HERE.parent
    with tempfile.TemporaryDirectory() as folder:
        for name in "a", "a_much_longer_name":
            copy = pathlib.Path(folder, name, "source")
            source = shutil.copytree(source, copy, ignore=shutil.ignore_patterns("build", ".git"))
            for command in (("--preset", "release", "-DTAVROFUSE_TESTS=OFF", "-B", "../out"),
                            ("--build", "../out", "--target", "tavrofuse")):
                built = subprocess.run(
                    ("cmake", *command), cwd=copy, **OUTPUT, text=True,
                    env={"PATH": os.environ["PATH"], "SOURCE_DATE_EPOCH": "1700000000"})
                expect_none([built.returncode and "the build fails: " + built.stdout[-2000:]])
            tools.append(copy.parent.joinpath("out/tavrofuse/tavrofuse").read_bytes())
    expect_none([tools[0] != tools[1] and "the tools are not equal"])


def cases(is_full):
    # The other user may not be let into the folder of the tool.
    as_other_user = 'cp "$1" tool && shift && exec %s ./tool "$@"' % " ".join(OTHER_USER)
    return kept_and_temporary([
        *(Case("%d hours behind" % hours, before="export TZ=XYZ+%d:59:59" % hours, status=(0,))
          for hours in (range(24) if is_full else (0, 23))),
        Case("another language", before="export LC_ALL=tr_TR.UTF-8 LANG=de_DE", status=(0,)),
        Case("another user", before=as_other_user, status=(0,)),
        Case("a mask", before="umask 077", status=(0,))])


def test_same_bytes(case):
    expect_none([run(case)])


def test_only_documented_files_are_touched():
    report, lines = trace(Case("touching"), "-e", "trace=%file,fcntl")
    expect_none([report])
    start = next(at for at, line in enumerate(lines) if FIRST_OF_MAIN.match(line))
    touched = set()
    named = re.compile(r'^(\w+)\((?:AT_FDCWD[^,]*, )?"([^"]+)"', re.M)
    for call, name in named.findall("".join(lines[start:])):
        name = next((NAMES[pattern] for pattern in NAMES if re.fullmatch(pattern, name)), name)
        touched.add(("opens " if call.startswith("open") else "looks at ") + name)
    expect_none(["not documented: " + what for what in touched - TOUCHED])
    expect_none(["documented, but not so: " + what for what in TOUCHED - touched])
