"""The installed examples, built as a user would, and again after touching what they are made of;
and mistakes in calls of tavrofuse_embed."""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

import pytest

from support import OUTPUT, difference, expect_none

HEAD = "cmake_minimum_required(VERSION 3.20)\nproject(p %s)\nfind_package(tavrofuse 0.9 REQUIRED)\n"
# The sample as a part of a project, with an image more from here; and a program with linked code.
OUTER = HEAD % "C" + """
add_subdirectory("${EXAMPLES}/cmake" sample)
tavrofuse_embed(TARGET host IMAGE dev.o)
add_executable(linked "${EXAMPLES}/embed/host.c")
tavrofuse_embed(TARGET linked IMAGE dev.o LINK NAME fatbin.inc FATBIN kept/linked.fatbin)
"""
MISTAKE = HEAD % "NONE" + "add_executable(host host.c)\ntavrofuse_embed(%s)\n"
# The arguments of the call, the folder of the bundler, and a part of what CMake says.
MISTAKES = (
    ("TARGET host IMAGE gone.o", "llvm/bin", "there is no image 'gone.o'"),
    ("TARGET host IMAGE a,b.o", "llvm/bin", "can't pass on the image"),
    ("TARGET host IMAGE [[a b.o]]", "llvm/bin", "can't pass on the image"),
    ("TARGET host IMAGE dev.o FATBIN [[a b]]", "llvm/bin", "can't pass on the fat binary"),
    ("TARGET host IMAGE dev.o COLOUR red", "llvm/bin", "doesn't know the arguments: COLOUR;red"),
    ("TARGET hots IMAGE dev.o", "llvm/bin", "there is no target 'hots'"),
    ("TARGET host IMAGE dev.o)\ntavrofuse_embed(TARGET host IMAGE dev.o", "llvm/bin",
     "has a 'dev.inc'"),
    ("TARGET host IMAGE dev.o", ".", "found no clang-offload-bundler"),
    ("TARGET host IMAGE dev.o", "a b/bin", "can't pass on the folder of the bundler"))
MADE = re.compile(r"host|linked|.*\.(inc|fatbin|gfx906|o)").fullmatch
SAMPLE = ["fatbin.inc", "fatbin.inc.fatbin", "host", "host.c.o"]
OTHERS = ["dev.inc", "dev.inc.fatbin", "fatbin.inc", "host.c.o", "linked", "linked.fatbin"]
PLAIN = ["fatbin.inc", "host", "kernel.fatbin"]


class Installation:
    """A copy of the installed tool and its examples, and a bundler that may be touched."""

    def __init__(self, folder, config):
        self.folder = folder
        shutil.copytree(config.getoption("prefix"), folder / "prefix")
        self.tool = folder / "prefix/bin/tavrofuse"
        self.examples = folder / "prefix" / config.getoption("docdir") / "examples"
        self.kernel = self.examples / "embed/kernel.cl"
        self.bundler = folder / "llvm/bin/clang-offload-bundler"
        self.bundler.parent.mkdir(parents=True)
        self.real_bundler = config.getoption("bundler_dir") + "/clang-offload-bundler"
        self.write_bundler("")
        self.bundler.chmod(0o755)

    def write_bundler(self, check):
        self.bundler.write_text('#!/bin/sh\n%s\nexec "%s" "$@"\n' % (check, self.real_bundler))

    def run(self, *command, cwd=None):
        # No build may ask for the last four.
        env = {"PATH": os.environ["PATH"], "HOME": str(self.folder), "TAVROSM_TARGET": "gfx000",
               "ROCM_PATH": "/none", "HIP_CLANG_PATH": "/none", "TAVROFUSE_BUNDLER": "/none"}
        return subprocess.run(command, cwd=cwd, env=env, **OUTPUT, text=True)

    def configure(self, source, clang_path, *words):
        return self.run("cmake", "-S", source, "-B", source / "out of tree",
                        "-DEXAMPLES=%s" % self.examples, "-DTAVROFUSE_CLANG_PATH=%s" % clang_path,
                        "-DCMAKE_PREFIX_PATH=%s/prefix" % self.folder, *words)

    # Touching a file rebuilds what depends on it, and nothing else; nothing touched, nothing built.
    def check_rebuilt(self, build, command, expected):
        def stamps():
            return {file: file.stat().st_mtime_ns for file in build.rglob("*")
                    if MADE(file.name) and file.is_file()}

        expect_done(self.run(*command, cwd=build))
        for touched, names in {None: [], **expected}.items():
            if touched:
                os.utime(touched)
            before = stamps()
            expect_done(self.run(*command, cwd=build))
            rebuilt = sorted(file.name for file, at in stamps().items() if at != before.get(file))
            expect_none([rebuilt != sorted(names) and "\n  ".join((
                "after touching %s" % touched, "should be rebuilt: %s" % sorted(names),
                "was rebuilt:       %s" % rebuilt))])

    def check_host(self, host, fatbin, image, version):
        shown = self.run(host, self.folder / "embedded")
        expect_done(shown)
        data, made = (self.folder / "embedded").read_bytes(), fatbin.read_bytes()
        expect_none([
            "version   %d\n" % version not in shown.stdout and "another version: " + shown.stdout,
            difference("what is embedded", data, made + bytes(-len(made) % 8)),
            b"--gfx906" not in data and "the fat binary has no part for gfx906",
            image.read_bytes() not in data and "the image is not in the fat binary"])


@pytest.fixture
def installation(pytestconfig):
    with tempfile.TemporaryDirectory(dir="/tmp") as folder:  # a path without blanks
        yield Installation(pathlib.Path(folder), pytestconfig)


def expect_done(done):
    expect_none([done.returncode and "status %d of %s:\n%s" % (
        done.returncode, " ".join(map(str, done.args)), done.stdout)])


@pytest.mark.parametrize("generator", ["Ninja", "Ninja Multi-Config", "Unix Makefiles"])
def test_cmake(generator, installation):
    source = installation.folder / "a b,c=d"
    build, image = source / "out of tree", source / "dev.o"
    source.mkdir()
    if generator == "Unix Makefiles":  # with a bundler that refuses what LLVM 21 and newer refuse
        installation.write_bundler("case $* in *-linux,*) exit 1 ;; esac")
    (source / "CMakeLists.txt").write_text(OUTER)
    image.write_bytes(b"an image" * 100)
    expect_done(installation.configure(source, installation.bundler.parent, "-G", generator))
    installation.check_rebuilt(build, ("cmake", "--build", "."), {
        image: OTHERS, installation.kernel: SAMPLE + ["kernel.gfx906"],
        installation.tool: SAMPLE + OTHERS, installation.bundler: SAMPLE + OTHERS})
    hosts = {file.name: file for file in build.rglob("*") if file.is_file()}
    installation.check_host(hosts["host"], hosts["fatbin.inc.fatbin"], hosts["kernel.gfx906"], 1)
    installation.check_host(hosts["linked"], build / "kept/linked.fatbin", image, 2)


@pytest.mark.parametrize("program", ["make", "ninja"])
def test_build_by_hand(program, installation):
    build, llvm = installation.examples / program, installation.bundler.parents[1]
    command = ("make", "TAVROFUSE=%s" % installation.tool, "LLVM=%s" % llvm)
    if program == "ninja":
        command, file = ("ninja",), build / "build.ninja"
        adapter = installation.folder / "prefix/libexec/tavrofuse"
        text = re.sub("(?m)^tavrofuse = .*", "tavrofuse = %s" % installation.tool, file.read_text())
        text = re.sub("(?m)^adapter = .*", "adapter = %s" % adapter, text)
        file.write_text(re.sub("(?m)^llvm = .*", "llvm = %s" % llvm, text))
    installation.check_rebuilt(build, command, {
        build / "kernel.gfx906": PLAIN, installation.tool: PLAIN, installation.bundler: PLAIN,
        installation.kernel: PLAIN + ["kernel.gfx906"]})
    installation.check_host(build / "host", build / "kernel.fatbin", build / "kernel.gfx906", 1)


@pytest.mark.parametrize("call, clang_path, text", MISTAKES, ids=[row[2] for row in MISTAKES])
def test_mistake_in_cmake(call, clang_path, text, installation):
    folder = installation.folder
    installation.write_bundler("exit 0")  # needs no adapter, whose folder has no blanks
    for name in "dev.o", "a,b.o", "a b.o":
        (folder / name).touch()
    (folder / "a b").symlink_to(folder / "llvm")
    (folder / "CMakeLists.txt").write_text(MISTAKE % call)
    result = installation.configure(folder, folder / clang_path)
    expect_none([not result.returncode and "CMake accepts it",
                 text not in " ".join(result.stdout.split()) and "CMake says: " + result.stdout])
