"""The adapter between two bundlers that print their arguments: `old` takes any target, `new` only
such as have an environment part."""
import pytest

from support import HERE
from user import Command

RUN = " adapter/clang-offload-bundler "
REFUSES = "case $* in *=host-x86_64-unknown-linux,*) exit 1 ;; esac"


@pytest.fixture
def adapted(folder):
    folder.path("adapter").symlink_to(HERE.parent / "adapter")
    del folder.env["HIP_CLANG_PATH"], folder.env["ROCM_PATH"]
    add_bundler(folder, "old")
    add_bundler(folder, "new", REFUSES)
    return folder


def add_bundler(folder, name, before=""):
    file = folder.path(name + "/clang-offload-bundler")
    file.parent.mkdir()
    file.write_text("#!/bin/sh\n%s\nprintf '<%%s>' %s \"$@\"\nexit ${STATUS-3}\n" % (before, name))
    file.chmod(0o755)


@pytest.mark.parametrize("given, passed", [
    ("-targets=host-x86_64-unknown-linux,hip-a", "<-targets=host-x86_64-unknown-linux-,hip-a>"),
    ("--targets=hip-a,host-x86_64-unknown-linux", "<--targets=hip-a,host-x86_64-unknown-linux->"),
    ("-targets host-x86_64-unknown-linux", "<-targets><host-x86_64-unknown-linux->"),
    ("-targets=host-x86_64-unknown-linux-gnu", "<-targets=host-x86_64-unknown-linux-gnu>"),
    ("-input=host-x86_64-unknown-linux", "<-input=host-x86_64-unknown-linux>"),
    ("-unbundle '' 'a  b' '*' -list", "<-unbundle><><a  b><*><-list>")])
def test_nothing_changes_but_the_target_of_the_host(given, passed, adapted):
    adapted.expect(Command("TAVROFUSE_BUNDLER=new/clang-offload-bundler" + RUN + given, status=3,
                           out="<new>" + passed))


@pytest.mark.parametrize("environment, used", [
    ("TAVROFUSE_BUNDLER=old/clang-offload-bundler HIP_CLANG_PATH=new", "<old>"),
    ("HIP_CLANG_PATH=old ROCM_PATH=gone", "<old>"),
    ("HIP_CLANG_PATH=gone PATH=new:old:$PATH", "<new>"),
    ("HIP_CLANG_PATH=adapter PATH=$PWD/adapter::old:$PATH", "<old>")])
def test_first_bundler_that_is_there_runs(environment, used, adapted):
    adapted.expect(Command(environment + RUN, status=3, out=used))


def test_neither_itself_nor_a_wrapper_of_itself_is_run(adapted):
    program = RUN.strip()
    add_bundler(adapted, "wrapper", program + ' "$@"; exit $?')
    adapted.expect(
        Command("TAVROFUSE_BUNDLER=" + program + RUN, status=1, err=program +
                ": error: TAVROFUSE_BUNDLER does not name a bundler: '%s'\n" % program),
        Command("TAVROFUSE_BUNDLER=wrapper/clang-offload-bundler" + RUN, status=1, err=program +
                ": error: 'wrapper/clang-offload-bundler' is no bundler, it runs this adapter; "
                "TAVROFUSE_BUNDLER can name one\n"))


@pytest.mark.parametrize("environment, folder_name, found", [
    ("", "old", "old\nold"), ("", "new", "adapter\nnew"),
    ("TAVROFUSE_BUNDLER=new/clang-offload-bundler", "adapter", "adapter\nnew"),
    ("TAVROFUSE_BUNDLER=gone HIP_CLANG_PATH=gone PATH=old:$PATH", "", "old\nold")])
def test_usable_bundler_and_how_to_use_it_are_told(environment, folder_name, found, adapted):
    adapted.env["STATUS"] = "0"
    adapted.expect(Command(environment + RUN + "--tavrofuse-find " + folder_name,
                           out=found + "/clang-offload-bundler\n"))


def test_folder_without_a_usable_bundler_is_told(adapted):
    adapted.expect(Command(RUN + "--tavrofuse-find gone", status=1, err=RUN.strip() + (
        ": error: no clang-offload-bundler of LLVM 15 or newer that works in\n  gone\n")))
