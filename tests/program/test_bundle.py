"""What the bundler's end and words make of the run; the name of the temporary file."""
import re
import time

import pytest

from support import expect_none
from user import Command

DIRECTORY = "tavrofuse error: Failed to write .: open file: Is a directory\n"


def cases(_):
    # The first line chooses the stream for all. An error goes on where the bundler stopped.
    logged = {"fatal": ("", ""), "error": ("", DIRECTORY), "warning": ("", DIRECTORY),
              **{level: ("bundled" + DIRECTORY, "")
                 for level in ("info", "debug", "trace", "Fatal", "none")}}
    return [
        Command("mkdir clang-offload-bundler; ./tavrofuse $image3 --clang-path=.", status=1,
                out="error: ./clang-offload-bundler: Permission denied\n"),
        *(Command("BUNDLER='cp $in $out; printf bundled' ./tavrofuse $image3 -fatbin=. -log-level="
                  + level, status=1, out=out, err=err) for level, (out, err) in logged.items())]


def test_run(case, folder):
    folder.expect(case)


@pytest.mark.parametrize("end, status", [
    ("exit 0", 0), ("exit 255", 1), ("kill -15 $$", 1),
    # What tavrofuse itself sends to a bundler that hangs; it knows of that from elsewhere.
    ("kill -9 $$", 0)])
def test_end_of_the_bundler_decides_and_its_words_are_passed_on_as_they_are(end, status, folder):
    folder.env["BUNDLER"] = (
        r"""cp "$in" "$out"; echo '100%% %%s %%n'; printf '\377%%%%%%%%' >&2; %s""" % end)
    folder.path("inc").write_text("before")
    folder.expect(Command("./tavrofuse $image3 --embedded-fatbin=inc", status=status,
                          out="100% %s %n\n\xff%%"))
    is_written = folder.path("inc").read_text() != "before"
    expect_none([is_written != (status == 0) and "the include file is %swritten" % (
        "" if is_written else "not ")])


def test_temporary_name_tells_image_and_local_time_and_differs_from_run_to_run(folder):
    digits = set()
    folder.env.update(BUNDLER=":", TZ="EAST-5:30")
    for image, stem in {"./%s.o" % folder.stem: folder.stem, "a.tar.o": "a.tar", "b": "b",
                        ".o": ""}.items():
        start = int(time.time()) - 1  # the clock that the tool reads can be a little late
        folder.expect(Command("./tavrofuse --image3=kind=elf,s,f=" + image))
        seconds = (time.gmtime(second + 19800)[1:6] for second in range(start, int(time.time()) + 1))
        tokens = "|".join("%x%x%x%x%x" % second for second in seconds)
        output = folder.path("args").read_text().splitlines()[-1]
        match = re.fullmatch("-output=/tmp/%s-(%s)-([0-9a-f]{16}).fatbin" % (stem, tokens), output)
        expect_none([not match and "not of the time %s: %s" % (tokens, output)])
        digits.add(match[2])
    folder.expect(Command("./tavrofuse --image3=kind=elf,s,f=" + "x" * 255))
    name = folder.path("args").read_text().splitlines()[-1].split("/")[-1]
    expect_none([len(name) != 255 and "the name was not cut: " + name])
    expect_none([len(digits) < 4 and "the digits were the same twice: %s" % digits])
