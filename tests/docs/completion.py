"""Types command lines of tavrofuse into an interactive bash, as a user does.

completion.py TOOL SETUP    SETUP: a file to source, which sees to it that the completion is there
"""
import os
import pty
import re
import subprocess
import sys
import tempfile

# What is typed, and behind "|" what the tab key adds.
CASES = [
    "--embed|ded-fatbin=", "--log-level=tr|ace ", "-log-level f|atal ", "--verb|ose ",
    "--offload-arch=gfx103|0 ", "--create=de|v.o ", "-fatbin sub/o|ut.inc ",
    r"--embedded-fatbin=wi|th\ blank ", r"--embedded-fatbin=with\ b|lank ",
    "--rocm-path=|sub/", "--clang-path |sub/", "--cmdline=de|",
    "--image3=|kind=elf,", "--image3=kind=elf,|sm=", "--image3=kind=elf,sm=gfx103|0,",
    "--image3=kind=elf,sm=own,|file=", "--image3=kind=elf,sm=own,file=de|v.o ",
    "-image3 kind=elf,sm=a,file=a.o ki|nd=elf,", "--link --image3 kind=elf,sm=o,file=su|b/",
]
SETTINGS = r"""
. "$SETUP"
bind 'set enable-bracketed-paste off'
bind -x '"\C-g": printf "<%s>\n" "$READLINE_LINE"'
PS1='ready> '
"""

tool, setup = sys.argv[1:]
usage = subprocess.run([tool, "--help"], capture_output=True, text=True, check=True).stdout
names = {name for line in re.findall(r"^ -.*?(?:  | \n|$)", usage, re.M)
         for name in re.findall(r"--?[\w-]+", line)}
folder = tempfile.TemporaryDirectory()
os.chdir(folder.name)
os.mkdir("sub")
for file, text in ("dev.o", ""), ("sub/out.inc", ""), ("with blank", ""), (".rc", SETTINGS):
    with open(file, "w") as stream:
        stream.write(text)
os.environ.update(SETUP=setup, TERM="dumb", TAVROSM_TARGET="", INPUTRC="/dev/null")
terminal, inside = pty.openpty()
bash = subprocess.Popen(["bash", "--rcfile", ".rc", "-i"], start_new_session=True,
                        stdin=inside, stdout=inside, stderr=inside)
os.close(inside)


def complete(typed, pattern=r"<tavrofuse (.*?)>\r"):
    os.write(terminal, typed.encode())
    seen = ""
    while not (match := re.search(pattern, seen)):
        seen += os.read(terminal, 4096).decode()
    return match[1]


complete("", "(ready> )")
got = [complete("\x15tavrofuse " + case.split("|")[0] + "\t\x07") for case in CASES]
offered = set(re.findall(r"--?[\w-]+", complete("\x15tavrofuse \x1b*\x07")))  # inserts them all
os.close(terminal)  # which ends the shell
bash.wait()
wrong = [f"{case} gave {line}" for case, line in zip(CASES, got) if case.replace("|", "") != line]
assert not wrong, wrong
assert offered == names, offered ^ names
