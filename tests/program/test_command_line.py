"""Which command lines the tool takes, and what it makes of options and variables."""
import os
import re

import pytest

from support import expect_none
from user import EXPECTED, Command, error

TARGET = "-targets=host-x86_64-unknown-linux,hipv4-amdgcn-amd-amdhsa--"
WORDS = "%s/clang-offload-bundler\n-type=o\n-bundle-align=4096\n" + TARGET + (
    "%s\n-input=/dev/null\n-input=%s\n-output=%s\n")
NOTHING_TO_DO = "Please specify embedded-fatbin or image3 option"
NO_ROCM = "Missing rocm path, please specify using the ROCM_PATH environment variable"
NO_CLANG = "Missing clang path, please specify using the HIP_CLANG_PATH environment variable"
WITHOUT_ROCM = NOTHING_TO_DO if os.path.exists("/opt/rocm") else NO_ROCM
BAD_IMAGES = ("./tavrofuse --create=fat --image3 '' kind=elf,f=1 s,kind=elf,f=2 kind=ptx,s,f=3"
              " kind=elf,s,4 kind=elf,s,f= kind=elf,s,f=5=6 kind=elf,s,f=7,8")


def unsupported(args, left):
    return error("./tavrofuse " + args, "Unsupported option '%s'" % left)


def cases(_):
    return [
        unsupported("stray --help --version -x", "stray -x"),
        unsupported("--log-level=fatal --100%s", "--100%s"),
        unsupported("--create a --create -x", "--create -x"),
        unsupported("--createx=a --64=1 --log-level= -Help", "--createx=a --64=1 --log-level= -Help"),
        unsupported("--image3 a --link b", "b"),
        # What is missing is named and not replaced.
        error("./tavrofuse --rocm-path=gone --clang-path=gone", NO_ROCM),
        error("ROCM_PATH=gone ./tavrofuse", NO_ROCM),
        error("./tavrofuse --clang-path=gone", NO_CLANG),
        error("HIP_CLANG_PATH=gone ./tavrofuse", NO_CLANG),
        error("./tavrofuse --create=fat", NOTHING_TO_DO),
        error("./tavrofuse --clang-path=. $image3", "clang-offload-bundler is not found"),
        error("ROCM_PATH= ./tavrofuse", WITHOUT_ROCM),
        error("unset ROCM_PATH; ./tavrofuse", WITHOUT_ROCM),
        # The first image description of the right form counts.
        error(BAD_IMAGES, NOTHING_TO_DO),
        Command("BUNDLER=: %s kind=elf,,any,path==9 kind=elf,sm=gfx906,file=dev.o" % BAD_IMAGES,
                args=WORDS % ("bundler", "gfx906", "9", "fat"))]


def test_command_line(case, folder):
    folder.expect(case)


# expected/help.txt has lines that end in a blank; they are meant.
def test_help_and_version_need_no_installation(folder):
    folder.path("100%s").symlink_to(folder.tool)
    folder.env["ROCM_PATH"] = "gone"
    usage = "Usage: ./100%s [options] \n" + (EXPECTED / "help.txt").read_text()
    folder.expect(Command("./100%s --help --log-level=fatal", out=usage))
    shown = folder.run("./tavrofuse -log-level fatal -help -version").stdout.decode()
    line = r"Version 0\.9\.0 \(\w{3} [ \d]\d \d{4} (\d\d:){2}\d\d [0-9a-f]{40}\)\n"
    expect_none([not re.fullmatch(line, shown) and "not a version: " + shown])


def test_short_names_and_separate_values_do_the_same_as_long_names(folder):
    words = WORDS % ("bundler", "a b", folder.stem + ".o", "fat")
    shown = words.replace("\n", " ").rstrip() + "\n"
    passed = words.replace(" ", "\n")  # a blank in a value can't be quoted
    folder.env.update(ROCM_PATH="", HIP_CLANG_PATH="")
    folder.expect(
        Command("./tavrofuse --create=a --create=fat -create=b --link --embedded-fatbin=inc"
                " '--offload-arch=a b' --rocm-path=. --clang-path=bundler --verbose --device-c --64"
                " '--cicc-cmdline=-a=b c' --cmdline=-d $image3", out=shown, args=passed),
        Command("./tavrofuse -create -64 fat -fatbin inc2 -link -v -c -offload-arch 'a b'"
                " -rocm-path . -clang-path bundler --cicc-cmdline a -cmdline d -log-level debug"
                " -image3 x ${image3#*=}", out=shown, args=passed),
        Command("cmp inc inc2"))


@pytest.mark.parametrize("command, bundler_folder, arch", [
    ("HIP_CLANG_PATH= ROCM_PATH=rocm ./tavrofuse", "rocm/llvm/bin", "gfx906"),
    ("HIP_CLANG_PATH= ./tavrofuse --rocm-path=./rocm", "./rocm/llvm/bin", "gfx906"),
    ("ROCM_PATH=rocm TAVROSM_TARGET= ./tavrofuse", "bundler", "gfx906"),
    ("HIP_CLANG_PATH=gone ./tavrofuse --clang-path=bundler/", "bundler/", "gfx906"),
    ("TAVROSM_TARGET=b ./tavrofuse", "bundler", "b"),
    ("TAVROSM_TARGET=b ./tavrofuse --offload-arch=a", "bundler", "a")])
def test_options_win_over_variables_and_variables_over_defaults(
        command, bundler_folder, arch, folder):
    folder.path("rocm/llvm").mkdir(parents=True)
    folder.path("rocm/llvm/bin").symlink_to(folder.path("bundler"))
    folder.expect(Command(command + " $image3 --create=fat",
                          args=WORDS % (bundler_folder, arch, folder.stem + ".o", "fat")))
