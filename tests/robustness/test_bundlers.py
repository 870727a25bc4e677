"""Bundlers that misbehave."""
from support import KEPT, PRIVATE_MOUNTS, Case, expect_none, kept_and_temporary, run


def cases(is_full):
    codes = range(1, 256) if is_full else (1, 2, 9, 126, 127, 128, 137, 255)
    signals = {*range(1, 32)} - {9, 17, 18, 19, 20, 21, 22, 23, 28} if is_full else (1, 6, 11, 13, 15)
    lines = 10000000 * (10 if is_full else 1)
    stale = "Failed to read fat: the bundler was killed before it wrote it"
    return [*(Case("is killed, the fat binary is older, " + name, before="echo older >fat",
                   bundler="kill -9 $$", args=args, status=(1,), error=stale)
              for name, args in (("kept", KEPT), ("alone", KEPT[1:]))), *kept_and_temporary([
        Case("writes nothing", bundler=":", status=(1,), error="stat64"),
        Case("prints zero bytes", bundler='cp "$in" "$out"; head -c 100000 /dev/zero',
             status=(0,), output=r"\A\Z"),
        Case("prints many lines", bundler='cp "$in" "$out"; yes | head -n %d' % lines,
             status=(0,), output=r"\A(y\n){%d}\Z" % lines),
        Case("closes its streams and goes on",
             bundler='exec >&- 2>&-; sleep 0.3; exec cp "$in" "$out"', status=(0,)),
        Case("leaves a child that holds the pipe",
             bundler='cp "$in" "$out"; (sleep 0.3; echo late) &', status=(0,), output="late"),
        Case("is killed when done", bundler='cp "$in" "$out"; kill -9 $$', status=(0,)),
        Case("is killed, nothing written", bundler="kill -9 $$", status=(1,), error="stat64"),
        Case("is killed after writing the same again", before='cp *.o fat; exec "$@"', status=(0,),
             bundler='cp "$in" "$out"; kill -9 $$'),
        Case("writes half a file", bundler='head -c 500 "$in" >"$out"', size=1000, share=0.5,
             status=(0,)),
        Case("writes half a file, then fails", bundler='head -c 500 "$in" >"$out"; exit 1',
             status=(1,), error=""),
        Case("writes to the wrong place", bundler='cp "$in" other', status=(1,), error="stat64"),
        Case("makes a folder", bundler='mkdir "$out"', status=(1,), error="Is a directory"),
        Case("makes a dead link", bundler='ln -s gone "$out"', status=(1,), error="stat64"),
        Case("makes a pipe", bundler='mkfifo "$out"', status=(1,)),
        Case("makes an unreadable file", bundler='cp "$in" "$out"; chmod 0 "$out"'),
        Case("removes its own folder", bundler='rm -r bundler; exec cp "$in" "$out"', status=(0,)),
        Case("removes the image", bundler='mv "$in" "$out"', status=(0,)),
        Case("removes the working folder", bundler='cp "$in" "$out"; rm -r "$PWD"', status=(1,),
             error="No such file"),
        Case("finds no stray descriptors", bundler='cp "$in" "$out"; ls /proc/self/fd',
             status=(0,), output=r"\A0\n1\n2\n3\n\Z"),
        Case("finds all standard streams", before='exec "$@" <&-',
             bundler='cp "$in" "$out"; ls /proc/self/fd', status=(0,), output=r"\A0\n1\n2\n3\n\Z"),
        Case("sees the terminal change its size", status=(0,),
             bundler='kill -WINCH $PPID; kill -URG $PPID; exec cp "$in" "$out"'),
        # The system spares it the end by a signal.
        *([Case("ends the first process of a container", status=(143,), error="",
                before='exec %s -pf "$@"' % " ".join(PRIVATE_MOUNTS),
                bundler="kill -TERM $PPID; exec sleep 60")] if PRIVATE_MOUNTS else []),
        Case("ends while the caller ignores SIGCHLD", before='exec env --ignore-signal=CHLD "$@"',
             status=(0,)),
        *(Case("exits with %d" % code, bundler='cp "$in" "$out"; exit %d' % code,
               status=(1,), error="") for code in codes),
        *(Case("dies of signal %d" % number, bundler='cp "$in" "$out"; kill -%d $$' % number,
               status=(1,), error="") for number in signals)])]


def test_bundler(case):
    expect_none([run(case)])
