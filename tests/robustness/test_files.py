"""The tool looks at the documented files and opens them, and no others."""
import re

from support import Case, expect_none
from tracing import FIRST_OF_MAIN, trace

# What the tool hands to the system as names of files.
TOUCHED = {"looks at BUNDLER", "looks at CLANG", "looks at FAT", "looks at IMAGE", "looks at INC",
           "looks at ROCM", "opens DIRECTORY", "opens /etc/localtime", "opens /proc/self/fd",
           "opens /proc/self/statm", "opens DRAFT", "opens FAT", "opens INC", "renames DRAFT"}
NAMES = {r"/tmp/tavrofuse_robustness_\w+-\w+-\w{16}\.fatbin": "FAT", r"\.tavrofuse-\w{16}": "DRAFT",
         r"bundler/clang-offload-bundler": "BUNDLER", r"bundler": "CLANG", r"\./": "ROCM",
         r"tavrofuse_robustness_\w+\.o": "IMAGE",         r"inc": "INC", r"\.": "DIRECTORY"}
VERBS = {"open": "opens", "rena": "renames"}


def test_only_documented_files_are_touched():
    case = Case("touching", env={"ROCM_PATH": "./"}, older=b"older")
    report, lines = trace(case, "-e", "trace=%file,fcntl")
    expect_none([report])
    assert "O_WRONLY|O_CREAT|O_EXCL|O_CLOEXEC, 0600)" in "".join(lines), "others may use the draft"
    start = next(at for at, line in enumerate(lines) if FIRST_OF_MAIN.match(line))
    touched = set()
    named = re.compile(r'^(\w+)\((?:\w+<[^,]*, )?"([^"]+)"', re.M)
    for call, name in named.findall("".join(lines[start:])):
        name = next((NAMES[pattern] for pattern in NAMES if re.fullmatch(pattern, name)), name)
        touched.add("%s %s" % (VERBS.get(call[:4], "looks at"), name))
    expect_none(["not documented: " + what for what in touched - TOUCHED])
    expect_none(["documented, but not so: " + what for what in TOUCHED - touched])
