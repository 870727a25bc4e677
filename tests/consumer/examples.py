"""Compiles and runs the C++ blocks of a Markdown file against the library that pkg-config finds.
Each block is a program, and the text block behind it is the output that it must have.

usage: examples.py FILE COMPILER [FLAG...]
"""
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

page = pathlib.Path(sys.argv[1]).read_text()
compiler = sys.argv[2:]
flags = subprocess.check_output(["pkg-config", "--cflags", "--libs", "libbasic >= 1.0"], text=True)
library = shlex.split(flags)  # blanks in a path are escaped
examples = re.findall(r"^```cpp\n(.*?)^```\n+```text\n(.*?)^```$", page, re.M | re.S)
if not examples or len(examples) != page.count("```cpp"):
    sys.exit("a C++ block has no output behind it, or there is none at all")

failures = 0
for program, expected in examples:
    with tempfile.TemporaryDirectory() as folder:
        pathlib.Path(folder, "example.cpp").write_text(program)
        subprocess.run([*compiler, "example.cpp", "-o", "example", *library], cwd=folder, check=True)
        run = subprocess.run(["./example"], cwd=folder, text=True, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT)
    if run.returncode != 0 or run.stdout != expected:
        failures += 1
        print(f"{program}\nexited with {run.returncode} and printed\n{run.stdout}\nnot\n{expected}")
sys.exit(failures)
