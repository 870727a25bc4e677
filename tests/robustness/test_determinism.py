"""The same bytes, whoever runs the tool, where and when; only the documented files."""
import re

from support import OTHER_USER, Case, expect_none, kept_and_temporary, run
from tracing import FIRST_OF_MAIN, trace

# What the tool hands to the system as names of files.
TOUCHED = {"looks at BUNDLER", "looks at CLANG", "looks at FAT", "looks at ROCM",
           "opens /etc/localtime", "opens FAT", "opens INC"}
NAMES = {r"/tmp/tavrofuse_robustness_\w+-\w+-\w{16}\.fatbin": "FAT", r"inc": "INC", r"\.": "ROCM",
         r"bundler/clang-offload-bundler": "BUNDLER", r"bundler": "CLANG"}


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
