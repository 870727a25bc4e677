# Builds the installed examples as a user would, and again after touching what they are made of; or
# calls tavrofuse_embed with mistakes. Usage: toolchain.py CASE PREFIX DOCDIR BUNDLER_DIR FOLDER
import os
import pathlib
import re
import shutil
import subprocess
import sys
GENERATORS = {"cmake-ninja": "Ninja", "cmake-multi-config": "Ninja Multi-Config",
              "cmake-makefiles": "Unix Makefiles"}
HEAD = "cmake_minimum_required(VERSION 3.20)\nproject(p %s)\nfind_package(tavrofuse 0.9 REQUIRED)\n"
# The sample as a part of a project, with an image more from here; and a program with linked code.
OUTER = HEAD % "C" + """
add_subdirectory("${EXAMPLES}/cmake" sample)
tavrofuse_embed(TARGET host IMAGE dev.o)
add_executable(linked "${EXAMPLES}/embed/host.c")
tavrofuse_embed(TARGET linked IMAGE dev.o LINK NAME fatbin.inc FATBIN kept/linked.fatbin)
"""
MISTAKE = HEAD % "NONE" + "add_executable(host host.c)\ntavrofuse_embed(%s)\n"
MISTAKES = (
    ("TARGET host IMAGE gone.o", "there is no image 'gone.o'"),
    ("TARGET host IMAGE a,b.o", "can't pass on the image"),
    ("TARGET host IMAGE [[a b.o]]", "can't pass on the image"),
    ("TARGET host IMAGE dev.o FATBIN [[a b]]", "can't pass on the fat binary"),
    ("TARGET host IMAGE dev.o COLOUR red", "doesn't know the arguments: COLOUR;red"),
    ("TARGET hots IMAGE dev.o", "there is no target 'hots'"),
    ("TARGET host IMAGE dev.o)\ntavrofuse_embed(TARGET host IMAGE dev.o", "has a 'dev.inc'"))
MADE = re.compile(r"host|linked|.*\.(inc|fatbin|gfx906|o)").fullmatch
SAMPLE = ["fatbin.inc", "fatbin.inc.fatbin", "host", "host.c.o"]
OTHERS = ["dev.inc", "dev.inc.fatbin", "fatbin.inc", "host.c.o", "linked", "linked.fatbin"]
PLAIN = ["fatbin.inc", "host", "kernel.fatbin"]

case, prefix, docdir, bundler_dir, folder = sys.argv[1:]
folder = pathlib.Path(folder)
shutil.rmtree(folder, ignore_errors=True)
shutil.copytree(prefix, folder / "prefix")
tool, examples = folder / "prefix/bin/tavrofuse", folder / "prefix" / docdir / "examples"
kernel, llvm = examples / "embed/kernel.cl", folder / "llvm"
bundler = llvm / "bin/clang-offload-bundler"  # one that may be touched
bundler.parent.mkdir(parents=True)
bundler.write_text('#!/bin/sh\nexec "%s/clang-offload-bundler" "$@"\n' % bundler_dir)
bundler.chmod(0o755)
# No build may ask for these.
os.environ.update(TAVROSM_TARGET="gfx000", ROCM_PATH="/none", HIP_CLANG_PATH="/none")


def configure(source, clang, *words):
    return subprocess.run(
        ("cmake", "-S", source, "-B", source / "out of tree", "-DEXAMPLES=%s" % examples,
         "-DTAVROFUSE_CLANG_PATH=%s" % clang, "-DCMAKE_PREFIX_PATH=%s/prefix" % folder) + words,
        stderr=subprocess.PIPE, text=True)


# Touching a file remakes what hangs on it, and nothing else; nothing touched, nothing made.
def check_remade(build, command, expected):
    def stamps():
        return {file: file.stat().st_mtime_ns for file in build.rglob("*") if MADE(file.name)}
    subprocess.run(command, cwd=build, check=True)
    for touched, names in {None: [], **expected}.items():
        if touched:
            os.utime(touched)
        before = stamps()
        subprocess.run(command, cwd=build, check=True)
        remade = sorted(file.name for file, stamp in stamps().items() if stamp != before.get(file))
        assert remade == sorted(names), "touching %s remade %s" % (touched, remade)


def check_host(host, fatbin, image, version):
    shown = subprocess.run((host, folder / "embedded"), check=True, stdout=subprocess.PIPE).stdout
    data = (folder / "embedded").read_bytes()
    assert b"version   %d\n" % version in shown and b"--gfx906" in data
    assert data.startswith(fatbin.read_bytes()) and image.read_bytes() in data


if case in GENERATORS:
    source = folder / "a b,c=d"
    build, image = source / "out of tree", source / "dev.o"
    source.mkdir()
    (source / "CMakeLists.txt").write_text(OUTER)
    image.write_bytes(b"an image" * 100)
    configure(source, llvm / "bin", "-G", GENERATORS[case]).check_returncode()
    check_remade(build, ("cmake", "--build", "."), {
        image: OTHERS, kernel: SAMPLE + ["kernel.gfx906"],
        tool: SAMPLE + OTHERS, bundler: SAMPLE + OTHERS})
    hosts = {file.name: file for file in build.rglob("*") if file.is_file()}
    check_host(hosts["host"], hosts["fatbin.inc.fatbin"], hosts["kernel.gfx906"], 1)
    check_host(hosts["linked"], build / "kept/linked.fatbin", image, 2)
elif case == "mistakes":
    for name in "dev.o", "a,b.o", "a b.o":
        (folder / name).touch()
    (folder / "a b").symlink_to(llvm)
    calls = [(*mistake, llvm / "bin") for mistake in MISTAKES] + [
        ("TARGET host IMAGE dev.o", "found no clang-offload-bundler", folder),
        ("TARGET host IMAGE dev.o", "can't pass on the folder of the bundler", folder / "a b/bin")]
    for call, text, clang in calls:
        (folder / "CMakeLists.txt").write_text(MISTAKE % call)
        result = configure(folder, clang)
        assert result.returncode and text in " ".join(result.stderr.split()), (call, result.stderr)
else:
    build = examples / case
    command = ("make", "TAVROFUSE=%s" % tool, "LLVM=%s" % llvm)
    if case == "ninja":
        command, file = ("ninja",), build / "build.ninja"
        text = re.sub("(?m)^tavrofuse = .*", "tavrofuse = %s" % tool, file.read_text())
        file.write_text(re.sub("(?m)^llvm = .*", "llvm = %s" % llvm, text))
    check_remade(build, command, {build / "kernel.gfx906": PLAIN, tool: PLAIN, bundler: PLAIN,
                                  kernel: PLAIN + ["kernel.gfx906"]})
    check_host(build / "host", build / "kernel.fatbin", build / "kernel.gfx906", 1)
