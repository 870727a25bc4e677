"""Command lines of a user, and what they must come to."""
import dataclasses
import subprocess

from support import HERE, Case, Place, difference, expect_none, read

EXPECTED = HERE / "program/expected"
RECORD = {"RECORD": "args", "BUNDLER": None}


@dataclasses.dataclass(frozen=True)
class Command:
    """A command for the shell, and what it must end with and print."""
    command: str
    status: int = 0
    out: str = ""
    err: str = ""
    args: str = None  # of the bundler, its name first, one a line; empty: it must not run

    @property
    def name(self):
        return self.command


def error(command, message):
    """A command that fails with a message of the tool."""
    return Command(command, status=1, err="tavrofuse error: %s\n" % message)


class Folder(Place):
    """A folder with the tool as `./tavrofuse` and an image that `$image3` names."""
    def __init__(self):
        super().__init__()
        self.path("tavrofuse").symlink_to(self.tool)
        self.path(self.stem + ".o").write_text("image")
        self.env = self.environment(Case("", env={
            **RECORD, "image3": "--image3=kind=elf,sm=gfx908,file=%s.o" % self.stem}))

    def run(self, command):
        self.path("args").unlink(missing_ok=True)
        return subprocess.run((*self.under, "sh", "-c", command), cwd=self.name, env=self.env,
                              stdin=subprocess.DEVNULL, capture_output=True, timeout=60)

    def expect(self, *commands, **files):
        """Runs commands, then compares files with their expected bytes. None: there is none."""
        for row in commands:
            done = self.run(row.command)
            problems = [
                done.returncode != row.status and "  status %d, expected %d" % (
                    done.returncode, row.status),
                difference("  stdout", done.stdout, row.out.encode("latin-1")),
                difference("  stderr", done.stderr, row.err.encode("latin-1")),
                row.args is not None and difference(
                    "  arguments of the bundler", read(self.path("args")) or b"", row.args.encode()),
                *("  left in /tmp: " + file for file in self.leftovers())]
            if any(problems):
                expect_none(["$ %s\n%s" % (row.command, "\n".join(filter(None, problems)))])
        expect_none(difference(name, read(self.path(name)), content) for name, content in files.items())
