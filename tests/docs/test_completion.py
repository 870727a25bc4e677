"""Types command lines of tavrofuse into interactive shells, as a user does.

The environment variable PREFIX names the folder that tavrofuse is installed in.
"""
import dataclasses
import os
import pathlib
import re
import subprocess

import pexpect
import pytest

PREFIX = pathlib.Path(os.environ["PREFIX"])
CONTROL_G = "\x07"  # has the shell print its line as <line>
CONTROL_U = "\x15"  # empties the line

# Each prints "ready> " when it takes a line.
BASH = r"""
bind 'set enable-bracketed-paste off'
bind 'set show-all-if-ambiguous on'
bind 'set completion-query-items 0'
bind 'set page-completions off'
bind -x '"\C-g": printf "<%s>\n" "$READLINE_LINE"'
PS1='ready> '
"""
ZSH = r"""
unset zle_bracketed_paste
fpath=("$PREFIX/share/zsh/site-functions" $fpath)
autoload -U compinit && compinit -u -D
show() { zle -I; print -r -- "<$BUFFER>" }
zle -N show
bindkey '^G' show
bindkey '^U' kill-whole-line
LISTMAX=1000
PS1='ready> '
"""
FISH = r"""
function fish_greeting; end
function fish_prompt; printf 'ready> '; end
# fish shows its candidates only when no other key is waiting, so they are printed here.
function show
    printf '\n'
    complete -C (commandline)
    printf '<%s>\n' (commandline)
    commandline -f repaint
end
bind \cg show
bind \cu kill-whole-line
set fish_autosuggestion_enabled 0
"""


@dataclasses.dataclass
class Shell:
    name: str
    command: tuple  # that starts it
    file: str       # what it reads at the start
    settings: str


SHELLS = [
    Shell("bash", ("bash", "--rcfile", "../home/rc", "-i"), "rc",
          '. /usr/share/bash-completion/bash_completion' + BASH),
    Shell("bash alone", ("bash", "--rcfile", "../home/rc", "-i"), "rc",
          '. "$PREFIX/share/bash-completion/completions/tavrofuse"' + BASH),
    Shell("zsh", ("zsh", "-i"), ".zshrc", ZSH),
    Shell("fish", ("fish", "-i"), "fish/config.fish", FISH),
]


class Terminal:
    """A shell at a terminal, in a folder with some files."""

    def __init__(self, shell, folder):
        self.shell = shell
        home, current = folder / "home", folder / "current"
        (home / "fish").mkdir(parents=True)
        (home / shell.file).write_text(shell.settings)
        (current / "sub").mkdir(parents=True)
        for file in "dev.o", "sub/out.inc", "with blank":
            (current / file).touch()
        self.terminal = pexpect.spawn(
            shell.command[0], list(shell.command[1:]), cwd=current, encoding="utf-8", timeout=20,
            dimensions=(200, 150), env={  # rows and columns: room for all the options
                "PATH": "%s/bin:%s" % (PREFIX, os.environ["PATH"]), "PREFIX": str(PREFIX),
                "LC_ALL": "C.UTF-8", "TERM": "dumb",
                "XDG_DATA_DIRS": "%s/share:/usr/share" % PREFIX, "INPUTRC": "/dev/null",
                "HOME": str(home), "XDG_CONFIG_HOME": str(home), "XDG_DATA_HOME": str(home)})
        self.terminal.expect("ready> ")

    def complete(self, typed):
        """Returns all that is printed after this and the tab key, and the line that comes of it."""
        self.terminal.send(CONTROL_U + "tavrofuse " + typed + "\t" + CONTROL_G)
        self.terminal.expect("<tavrofuse (.*)>\r(.|\n)*ready> ")
        return self.terminal.before, self.terminal.match[1]


@pytest.fixture(scope="module", params=SHELLS, ids=lambda shell: shell.name)
def terminal(request, tmp_path_factory):
    terminal = Terminal(request.param, tmp_path_factory.mktemp("home"))
    yield terminal
    terminal.terminal.close(force=True)


# What is typed, and after "|" what the tab key adds. Where fish adds something else, its line follows.
LINES = {
    "option with a value": ("--embed|ded-fatbin=", "--embed|ded-fatbin "),
    "option without a value": ("--verb|ose ",),
    "value after =": ("--log-level=tr|ace ",),
    "value as an argument": ("-log-level f|atal ",),
    "architecture": ("--offload-arch=gfx103|0 ",),
    "file": ("--create=de|v.o ",),
    "file in a folder": ("-fatbin sub/o|ut.inc ",),
    "blank in a file's name": (r"--embedded-fatbin=wi|th\ blank ",),
    "rest of a name with a blank": (r"--embedded-fatbin=with\ b|lank ",),
    "folder after =": ("--rocm-path=|sub/",),
    "folder as an argument": ("--clang-path |sub/",),
    "value of any kind": ("--cmdline=de|",),
    "image, kind": ("--image3=|kind=elf,",),
    "image, its second piece": ("--image3=kind=elf,|sm=",),
    "image, architecture": ("--image3=kind=elf,sm=gfx103|0,",),
    "image, its third piece": ("--image3=kind=elf,sm=own,|file=",),
    "image, file": ("--image3=kind=elf,sm=own,file=de|v.o ",),
    "image, file in a folder": ("--link --image3 kind=elf,sm=o,file=su|b/",),
    "second image": ("-image3 kind=elf,sm=a,file=a.o ki|nd=elf,",),
}


@pytest.mark.parametrize("lines", LINES.values(), ids=LINES)
def test_tab_key_completes(terminal, lines):
    expected = lines[-1 if terminal.shell.name == "fish" else 0]
    typed = expected.split("|")[0]
    seen, line = terminal.complete(typed)
    if line != expected.replace("|", ""):
        pytest.fail("%s made of   tavrofuse %s<Tab>\n  the line   tavrofuse %s\n  not        "
                    "tavrofuse %s\nand printed %r" % (terminal.shell.name, typed, line,
                                                      expected.replace("|", ""), seen),
                    pytrace=False)


def test_all_options_are_offered(terminal):
    usage = subprocess.run([PREFIX / "bin/tavrofuse", "--help"], capture_output=True, text=True,
                           check=True).stdout
    names = {name for line in re.findall(r"^ -.*?(?:  | \n|$)", usage, re.M)
             for name in re.findall(r"--?[\w-]+", line)}
    seen, _ = terminal.complete("-")
    offered = set(re.findall(r"(?<![\w-])--?[\w][\w-]*", seen))
    if offered != names:
        pytest.fail("%s does not offer %s; it offers %s, which tavrofuse does not know"
                    % (terminal.shell.name, sorted(names - offered) or "nothing",
                       sorted(offered - names) or "nothing"), pytrace=False)
