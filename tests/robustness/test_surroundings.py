"""An unfriendly environment and command line; closed standard streams."""
import dataclasses

from jobs import JOBS
from support import COPY, KEPT, Case, expect_none, run

TEXTS = {"conversions": "%n%s%n", "two lines": "a\nb", "terminal codes": "\033[2J\033]0;x\a",
         "substitution": "$(touch inc)", "command": "; rm -rf .", "parents": "../../..",
         "no text": "\udcff", "100 KB": "x" * 100000, "131 KB": "y" * 131000}
VARIABLES = "ROCM_PATH HIP_CLANG_PATH TAVROSM_TARGET TZ LC_ALL TMPDIR GLIBC_TUNABLES".split()
COMMAND_LINES = (
    "--TEXT", "-fatbin=inc -create=fat --cicc-cmdline=TEXT", "-fatbin=gone/TEXT", "-fatbin=TEXT",
    "-create=gone/TEXT", "-fatbin=inc --offload-arch=TEXT", "-create=x --image3=kind=elf,s,f=TEXT")


# A shell that becomes the tool can leave it children; this one lives as long as the tool. Its fat
# binary is out of date.
HANDED_DOWN = ("echo stale >fat; mkfifo gate; exec 7<>gate 8<gate; cat <&8 7>&- & "
               "exec 8<&-; export CHILD=$!")


def cases(is_full):
    values = {"unset": None, "empty": "", "a device": ":/dev/zero", **TEXTS}
    streams = {"input": "<&-", "output": ">&-", "errors": "2>&-"}
    closed = [[name for bit, name in enumerate(streams) if number >> bit & 1] for number in range(8)]
    return [
        *(Case("%s: %s" % (variable, name), env={variable: value})
          for variable in VARIABLES for name, value in values.items()),
        *(Case("%s: %s" % (line, name), args=tuple(
            word.replace("TEXT", text) for word in line.split()))
          for line in COMMAND_LINES for name, text in TEXTS.items()),
        Case("handed-down child", args=KEPT, before=HANDED_DOWN),
        Case("handed-down child that has ended", args=KEPT, before=HANDED_DOWN + "; kill $!"),
        Case("handed-down child that ends", args=KEPT, before=HANDED_DOWN,
             bundler="kill $CHILD; " + COPY),
        Case("1100 open files", args=KEPT, status=(0,), before="exec prlimit --nofile=2000: "
             """bash -c 'for n in {3..1100}; do eval "exec $n</dev/null"; done; exec "$@"' bash "$@" """),
        Case("another time, language and mask", args=KEPT, status=(0,),
             before="export TZ=XYZ+23:59:59 LC_ALL=tr_TR.UTF-8 LANG=de_DE; umask 077"),
        Case("command line of 1 MB", args=KEPT + ("--image3", "x" * 100) * 10000, status=(0,)),
        *(dataclasses.replace(
            job, name="%s, closed: %s" % (job.name, ", ".join(names) or "none"), error="",
            before='exec "$@" ' + " ".join(streams[name] for name in names))
          for job in JOBS for names in closed)]


def test_surroundings(case):
    expect_none([run(case)])
