#!/usr/bin/env python3
"""Runs the commands that the docs show and inserts what they print, so that the output is always real.

  docs/pictures/renew.py [--check] TOOL BUNDLER_FOLDER [FILE...]

FILE is one of those below; the default is all. With --check, nothing is written, and the status is 1 if
a file is out of date.

  docs/troubleshooting.md  In console blocks, the lines that begin with "$ " are run, and the lines
                           after them are their output. In tables with a command in the second
                           column, the third is the output and the fourth the exit status.
  docs/run.svg             The commands of run.console in this folder, as in a terminal. The output also
                           depends on the compilers, so it is not checked.
"""
import difflib
import html
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
DOCS = HERE.parent
ADAPTER = DOCS.parent / "adapter/clang-offload-bundler"
COLUMNS, CELL_WIDTH, LINE_HEIGHT, MARGIN = 92, 8, 18, 16


class Shell:
    """A folder with a ROCm installation in it, and commands run there one by one."""

    def __init__(self, tool, bundler_folder):
        found = subprocess.run([ADAPTER, "--tavrofuse-find", bundler_folder], check=True, text=True,
                               stdout=subprocess.PIPE).stdout
        clang_path, bundler = (Path(line).resolve() for line in found.splitlines())
        self._bundler = str(bundler)
        self._folder = tempfile.TemporaryDirectory()
        folder = Path(self._folder.name)
        (folder / "rocm/llvm").mkdir(parents=True)
        (folder / "rocm/llvm/bin").symlink_to(clang_path)
        (folder / "bin").mkdir()
        (folder / "bin/tavrofuse").symlink_to(tool.resolve())
        (folder / "bin/clang-offload-bundler").symlink_to(clang_path / "clang-offload-bundler")
        for source in "host.c", "kernel.cl":
            shutil.copy(DOCS.parent / "examples/embed" / source, folder)
        self._environment = {"PATH": f"{folder}/bin:{os.environ['PATH']}", "HOME": str(folder),
                             "LC_ALL": "C", "ROCM_PATH": "rocm",
                             "TAVROFUSE_BUNDLER": self._bundler,
                             "image3": "--image3=kind=elf,sm=gfx906,file=dev.o"}

    def run(self, command):
        """Returns what the command wrote to standard output and to standard error, and its status.

        A bundler that runs through the adapter names itself by another path than one run directly."""
        done = subprocess.run(["bash", "-c", command], cwd=self._folder.name, env=self._environment,
                              capture_output=True, text=True, stdin=subprocess.DEVNULL)
        stdout, stderr = (text.replace(self._bundler, "rocm/llvm/bin/clang-offload-bundler")
                          for text in (done.stdout, done.stderr))
        return stdout, stderr, done.returncode


def renew_block(shell, lines):
    shown = []
    command = ""
    for line in lines:
        if line.startswith("$ ") or command.endswith("\\\n"):
            shown.append(line)
            command = (command if command.endswith("\\\n") else "") + line.removeprefix("$ ") + "\n"
            if not line.endswith("\\"):
                output, errors, _ = shell.run(command)
                shown += (output + errors).splitlines()
                command = ""
    return shown


def renew_row(shell, cells):
    output, errors, status = shell.run(cells[1].strip("`"))
    texts = [f"{name}: `{line}`" for name, text in (("stdout", output), ("stderr", errors))
             for line in text.splitlines()]
    return f"| {cells[0]} | {cells[1]} | {'<br>'.join(texts) or 'nothing'} | {status} |"


def renew_page(shell, page):
    lines = []
    block = None
    for line in page.read_text().splitlines():
        cells = line.strip("| ").split(" | ")
        if block is not None and line == "```":
            lines += renew_block(shell, block) + [line]
            block = None
        elif block is not None:
            block.append(line)
        elif line == "```console":
            lines.append(line)
            block = []
        elif line.startswith("| ") and len(cells) > 1 and cells[1].startswith("`tavrofuse"):
            lines.append(renew_row(shell, cells))
        else:
            lines.append(line)
    return "\n".join(lines) + "\n"


def draw_terminal(shell):
    rows = []
    for line in renew_block(shell, (HERE / "run.console").read_text().splitlines()):
        kind = "typed" if line.startswith(("$ ", "    ")) else "printed"
        line = line.expandtabs()
        rows += [(kind, line[i:i + COLUMNS]) for i in range(0, max(len(line), 1), COLUMNS)]
    width = COLUMNS * CELL_WIDTH + 2 * MARGIN
    height = len(rows) * LINE_HEIGHT + 2 * MARGIN
    texts = [f'<text class="{kind}" x="{MARGIN}" y="{MARGIN + LINE_HEIGHT * row + 13}" '
             f'textLength="{CELL_WIDTH * len(line)}" lengthAdjust="spacingAndGlyphs">'
             f"{html.escape(line, False)}</text>" for row, (kind, line) in enumerate(rows) if line]
    return "\n".join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" role="img" '
        'xml:space="preserve">',
        "<title>A run of tavrofuse in a terminal</title>",
        "<!-- Made by pictures/renew.py from pictures/run.console. -->",
        "<style>text{font:13px monospace;fill:#c9d1d9}"
        ".typed{fill:#ffffff;font-weight:bold}</style>",
        f'<rect width="{width}" height="{height}" rx="8" fill="#161b22"/>', *texts, "</svg>", ""])


def main():
    arguments = sys.argv[1:]
    is_check = arguments[:1] == ["--check"]
    tool, bundler_folder, *files = map(Path, arguments[is_check:])
    is_right = True
    for file in files or (DOCS / "troubleshooting.md", DOCS / "run.svg"):
        shell = Shell(tool, bundler_folder)
        text = draw_terminal(shell) if file.suffix == ".svg" else renew_page(shell, file)
        if not is_check:
            file.write_text(text)
        elif text != file.read_text():
            is_right = False
            sys.stdout.writelines(difflib.unified_diff(
                file.read_text().splitlines(True), text.splitlines(True), str(file), "up to date"))
    return 0 if is_right else 1


sys.exit(main())
