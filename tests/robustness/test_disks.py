"""Disks that are full, too small, read-only or gone; limits on files, descriptors and memory."""
from support import PRIVATE_MOUNTS, TEMPORARY, Case, expect_none, kept_and_temporary, run

SMALL = 100000  # bytes; the include file of so many does not fit on the small disks
TO_FOLDER = ("-fatbin=small/inc",)
UNLIMITED_BUNDLER = 'ulimit -S -f unlimited; exec cp "$in" "$out"'


# Where the kernel allows no file systems of one's own, the limits on the size of files have to do.
def small_disks():
    if not PRIVATE_MOUNTS:
        return ()
    mounts = " ".join(PRIVATE_MOUNTS)
    on_disk = "mkdir small; exec %s sh -c 'mount -t tmpfs -o %s none small && exec \"$@\"' sh \"$@\""
    return (
        Case("disk too small for the include file", args=TO_FOLDER, size=SMALL, status=(1,),
             before=on_disk % (mounts, "size=64k"), error="No space left"),
        # The tool is opened first: it may lie below what the small disk hides.
        Case("disk too small for the temporary file", size=SMALL, status=(1,), before=f"""
             exec {mounts} sh -c 'exec 9<"$1" && shift && mount -t tmpfs -o size=64k none /tmp || exit
             /proc/self/fd/9 "$@"
             status=$?
             [ -z "$(ls -A /tmp)" ] && exit $status || exit 9' sh "$@" """, error="No space left"),
        Case("read-only disk", args=TO_FOLDER, status=(1,), before=on_disk % (mounts, "ro"),
             error="Read-only"))


def cases(is_full):
    limits = (0, 1, 1000, 4096, 5000, 65536, 200000) if is_full else (0, 5000, 65536)
    printing = ("-fatbin=inc", "-create=fat", "-v")
    many_words = ("--image3",) + ("a",) * 100000
    return [
        *small_disks(),
        # The words and what is made of them take some MiB. Where a program can't even start with
        # them, the message is made here.
        *(Case("%d words, memory of %d MiB" % (len(many_words), size), args=TEMPORARY + many_words,
               bundler='ulimit -S -v unlimited; exec cp "$in" "$out"', before=f"""
               prlimit --as={size - 2 << 20}:unlimited "$1" --version >version 2>&1 ||
                 {{ echo Cannot allocate memory; exit 1; }}
               exec prlimit --as={size << 20}:unlimited "$@" """,
               error="bad_alloc|Cannot allocate memory")
          for size in (range(2, 24) if is_full else (4, 6, 8, 12, 16, 22))),
        Case("no fat binary", args=TEMPORARY + ("-create=/dev/null",), status=(1,),
             error="Failed to read /dev/null: it is not a regular file"),
        Case("fat binary on a full device", args=TEMPORARY + ("-create=/dev/full",), status=(1,)),
        Case("working folder gone", bundler='cp "$FOLDER/$in" "$out"', status=(1,), error="No such",
             before='export HIP_CLANG_PATH="$PWD/bundler" ROCM_PATH=/ && '
                    "mkdir gone && cd gone && rmdir ../gone"),
        Case("folder goes while the bundler runs", args=("-fatbin=bundler/inc",), status=(1,),
             bundler='cp "$in" "$out"; rm -r bundler', error="No such file"),
        Case("output to a full device", args=printing, before='exec "$@" >/dev/full 2>&1',
             status=(0,)),
        Case("output that nobody reads", args=printing,
             bundler='cp "$in" "$out"; yes | head -c 300000', status=(0,),
             before='{ "$@"; echo $? >status; } | : && exit $(cat status)'),
        Case("more output than memory", before='exec prlimit --as=%d:unlimited "$@"' % (64 << 20),
             bundler='ulimit -S -v unlimited; yes | head -c 99999999; exec sleep 60', status=(1,),
             error="bad_alloc"),
        Case("stack of 64 KiB", before='ulimit -s 64; exec "$@"', status=(0,)),
        *kept_and_temporary([
            *(Case("files of %d bytes" % limit, size=SMALL, status=(1,), error="too large",
                   before='exec prlimit --fsize=%d:unlimited "$@"' % limit,
                   bundler=UNLIMITED_BUNDLER) for limit in limits),
            *(Case("files of %d bytes, the bundler's too" % limit, size=SMALL, status=(1,), error="",
                   before='exec prlimit --fsize=%d:unlimited "$@"' % limit) for limit in limits),
            *(Case("%d descriptors" % limit, error="",
                   before='exec prlimit --nofile=%d:unlimited "$@"' % limit)
              for limit in range(3, 9 if is_full else 7))])]


def test_disk(case):
    expect_none([run(case)])
