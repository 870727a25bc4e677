"""Rules that embed a device image in a host program.

tavrofuse_embed      makes the include file, and a fat binary beside it
tavrofuse_toolchain  finds tavrofuse and the bundler on this machine (in WORKSPACE)
"""

def _tavrofuse_embed_impl(ctx):
    # A folder for each target: all have the include file under the name that the host code knows.
    include = ctx.actions.declare_file(ctx.label.name + "/" + ctx.attr.include)
    fatbin = ctx.actions.declare_file(ctx.label.name + "/image.fatbin")
    bundler = ctx.executable._bundler

    arguments = ctx.actions.args()
    arguments.add(ctx.file.image, format = "--image3=kind=elf,sm=" + ctx.attr.arch + ",file=%s")
    arguments.add(ctx.attr.arch, format = "--offload-arch=%s")
    arguments.add(include, format = "--embedded-fatbin=%s")
    arguments.add(fatbin, format = "--create=%s")
    arguments.add(bundler.dirname, format = "--clang-path=%s")
    arguments.add(bundler.dirname, format = "--rocm-path=%s")
    if ctx.attr.link:
        arguments.add("--link")

    # Everything that has a say in the result is on the command line. The bundler may find its
    # objcopy through PATH alone.
    ctx.actions.run(
        executable = ctx.executable._tavrofuse,
        arguments = [arguments],
        inputs = depset(
            [ctx.file.image],
            transitive = [ctx.attr._bundler[DefaultInfo].default_runfiles.files],
        ),
        tools = [bundler],
        outputs = [include, fatbin],
        env = {"PATH": bundler.dirname},
        mnemonic = "TavrofuseEmbed",
        progress_message = "Embedding " + ctx.file.image.short_path,
    )
    return [
        DefaultInfo(files = depset([include])),
        OutputGroupInfo(fatbin = depset([fatbin])),
        CcInfo(compilation_context = cc_common.create_compilation_context(
            headers = depset([include]),
            quote_includes = depset([include.dirname]),
        )),
    ]

tavrofuse_embed = rule(
    implementation = _tavrofuse_embed_impl,
    doc = "Makes an include file of a device image. Named in `deps`, it is there to be included.",
    attrs = {
        "image": attr.label(mandatory = True, allow_single_file = True),
        "arch": attr.string(default = "gfx906", doc = "What the image was compiled for."),
        "include": attr.string(default = "fatbin.inc", doc = "The name of the include file."),
        "link": attr.bool(doc = "Whether the image holds linked code."),
        "_tavrofuse": attr.label(
            default = "@tavrofuse_toolchain//:tavrofuse",
            executable = True,
            cfg = "exec",
        ),
        "_bundler": attr.label(
            default = "@tavrofuse_toolchain//:bundler",
            executable = True,
            cfg = "exec",
        ),
    },
)

_TOOLCHAIN_BUILD = """
package(default_visibility = ["//visibility:public"])

filegroup(name = "tavrofuse", srcs = ["bin/tavrofuse"])

# The bundler runs objcopy, and may have brought libraries of its own.
filegroup(
    name = "bundler",
    srcs = ["llvm/bin/clang-offload-bundler"],
    data = ["llvm/bin/llvm-objcopy"] + glob([
        "llvm/lib/libLLVM.so*",
        "llvm/lib/libclang-cpp.so*",
    ]),
)
"""

def _find_llvm(repository):
    folder = repository.os.environ.get("TAVROFUSE_LLVM")
    if folder:
        return repository.path(folder)

    # Bundlers of other versions take other options, or targets of another form.
    for version in range(19, 14, -1):
        llvm = repository.path("/usr/lib/llvm-%d" % version)
        if llvm.get_child("bin").get_child("clang-offload-bundler").exists:
            return llvm
    return fail("no clang-offload-bundler of LLVM 15 to 19; TAVROFUSE_LLVM names another LLVM")

def _tavrofuse_toolchain_impl(repository):
    tavrofuse = repository.os.environ.get("TAVROFUSE") or repository.which("tavrofuse")
    if not tavrofuse:
        fail("no tavrofuse in PATH; TAVROFUSE names another place")
    llvm = _find_llvm(repository)
    repository.symlink(tavrofuse, "bin/tavrofuse")
    for tool in ["clang-offload-bundler", "llvm-objcopy"]:
        path = llvm.get_child("bin").get_child(tool)
        if not path.exists:
            path = repository.which(tool) or fail("no %s in %s/bin or PATH" % (tool, llvm))
        repository.symlink(path, "llvm/bin/" + tool)
    repository.symlink(llvm.get_child("lib"), "llvm/lib")
    repository.file("BUILD", _TOOLCHAIN_BUILD)

tavrofuse_toolchain = repository_rule(
    implementation = _tavrofuse_toolchain_impl,
    doc = "Takes $TAVROFUSE, else the one in PATH; $TAVROFUSE_LLVM, else the newest of 15 to 19.",
    environ = ["PATH", "TAVROFUSE", "TAVROFUSE_LLVM"],
    local = True,
)
