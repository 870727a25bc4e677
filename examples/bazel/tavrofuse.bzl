"""Rules that embed a device image in a host program.

tavrofuse_embed      makes the include file, and a fat binary next to it
tavrofuse_toolchain  finds tavrofuse and the bundler on this machine (in WORKSPACE)
"""

def _tavrofuse_embed_impl(ctx):
    # A folder for each target: the include files have the same name.
    include = ctx.actions.declare_file(ctx.label.name + "/" + ctx.attr.include)
    fatbin = ctx.actions.declare_file(ctx.label.name + "/image.fatbin")
    bundler = ctx.executable._bundler

    arguments = ctx.actions.args()
    arguments.add(ctx.file.image, format = "--image3=kind=elf,sm=" + ctx.attr.arch + ",file=%s")
    arguments.add(ctx.attr.arch, format = "--offload-arch=%s")
    arguments.add(include, format = "--embedded-fatbin=%s")
    arguments.add(fatbin, format = "--create=%s")
    arguments.add(ctx.executable._adapter.dirname, format = "--clang-path=%s")
    arguments.add(bundler.dirname, format = "--rocm-path=%s")
    if ctx.attr.link:
        arguments.add("--link")

    # The adapter runs the bundler of LLVM 15 or newer. Some bundlers look for llvm-objcopy only in PATH.
    ctx.actions.run(
        executable = ctx.executable._tavrofuse,
        arguments = [arguments],
        inputs = depset(
            [ctx.file.image],
            transitive = [ctx.attr._bundler[DefaultInfo].default_runfiles.files],
        ),
        tools = [ctx.executable._adapter, bundler],
        outputs = [include, fatbin],
        env = {"PATH": bundler.dirname, "TAVROFUSE_BUNDLER": bundler.path},
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
    doc = "Makes an include file of a device image. Name it in `deps` of the code that includes it.",
    attrs = {
        "image": attr.label(mandatory = True, allow_single_file = True),
        "arch": attr.string(default = "gfx906", doc = "The architecture of the image."),
        "include": attr.string(default = "fatbin.inc", doc = "The name of the include file."),
        "link": attr.bool(doc = "Whether the image holds linked code."),
        "_tavrofuse": attr.label(
            default = "@tavrofuse_toolchain//:tavrofuse",
            executable = True,
            cfg = "exec",
        ),
        "_adapter": attr.label(
            default = "@tavrofuse_toolchain//:adapter",
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

filegroup(name = "adapter", srcs = ["adapter/clang-offload-bundler"])

# The bundler runs objcopy, and may use libraries of its own installation.
filegroup(
    name = "bundler",
    srcs = ["llvm/bin/clang-offload-bundler"],
    data = ["llvm/bin/llvm-objcopy"] + glob([
        "llvm/lib/libLLVM.so*",
        "llvm/lib/libclang-cpp.so*",
    ]),
)
"""

def _tavrofuse_toolchain_impl(repository):
    tavrofuse = repository.os.environ.get("TAVROFUSE") or repository.which("tavrofuse")
    if not tavrofuse:
        fail("there is no tavrofuse in PATH; set TAVROFUSE to its file")
    tavrofuse = repository.path(tavrofuse)
    adapter = repository.os.environ.get("TAVROFUSE_ADAPTER")
    if not adapter:
        libexec = tavrofuse.dirname.dirname.get_child("libexec")
        adapter = libexec.get_child("tavrofuse").get_child("clang-offload-bundler")

    # The adapter finds a bundler that works.
    llvm = repository.os.environ.get("TAVROFUSE_LLVM")
    found = repository.execute([adapter, "--tavrofuse-find"] + ([llvm + "/bin"] if llvm else []))
    if found.return_code:
        fail(found.stderr)
    bundler = repository.path(found.stdout.splitlines()[1])
    llvm = repository.path(bundler.realpath.dirname.dirname)
    repository.symlink(tavrofuse, "bin/tavrofuse")
    repository.symlink(adapter, "adapter/clang-offload-bundler")
    for tool in ["clang-offload-bundler", "llvm-objcopy"]:
        path = llvm.get_child("bin").get_child(tool)
        if not path.exists:
            path = repository.which(tool) or fail("no %s in %s/bin or PATH" % (tool, llvm))
        repository.symlink(path, "llvm/bin/" + tool)
    repository.symlink(llvm.get_child("lib"), "llvm/lib")
    repository.file("BUILD", _TOOLCHAIN_BUILD)

tavrofuse_toolchain = repository_rule(
    implementation = _tavrofuse_toolchain_impl,
    doc = "Uses $TAVROFUSE, or else the tool in PATH; $TAVROFUSE_LLVM, or else the first LLVM that works.",
    environ = ["PATH", "TAVROFUSE", "TAVROFUSE_ADAPTER", "TAVROFUSE_BUNDLER", "TAVROFUSE_LLVM"],
    local = True,
)
