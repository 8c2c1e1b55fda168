"""Rules for programs of the ZEL8 family: zel8_object, zel8_binary, zel8_test; and zel8_repository, which finds the tools.

In WORKSPACE, with this folder's two files in a folder `zel8` of the project:

    load("//zel8:zel8.bzl", "zel8_repository")
    zel8_repository(name = "zel8")

Assembling a module is one action whose inputs are the source, the includes that are named, and the tools with their data; so it can
run on another machine and its result can come from a cache.
"""

def _zel8_repository(ctx):
    zel8 = ctx.path(ctx.attr.path + "/bin/zel8") if ctx.attr.path else ctx.which("zel8")
    if not zel8:
        fail("there is no zel8 in PATH; name the installation by path")
    home = zel8.realpath.dirname.dirname
    ctx.symlink(home.get_child("bin"), "bin")
    ctx.symlink(home.get_child("zel"), "zel")
    ctx.file("BUILD", """
package(default_visibility = ["//visibility:public"])
exports_files(["bin/zel8", "bin/zelsim"])
filegroup(name = "files", srcs = glob(["bin/*", "zel/**"]))
""")

zel8_repository = repository_rule(
    implementation = _zel8_repository,
    attrs = {"path": attr.string(doc = "The prefix of the installation, where PATH doesn't lead to it")},
    environ = ["PATH"],
    local = True,
)

_tools = {
    "_zel8": attr.label(default = "@zel8//:bin/zel8", allow_single_file = True),
    "_zelsim": attr.label(default = "@zel8//:bin/zelsim", allow_single_file = True),
    "_files": attr.label(default = "@zel8//:files"),
}

_module = {
    "chip": attr.string(mandatory = True),
    "hdrs": attr.label_list(allow_files = True, doc = "The files that the sources include"),
    "includes": attr.string_list(doc = "Folders for includes, below the package"),
    "defines": attr.string_list(doc = "NAME or NAME=value"),
    "copts": attr.string_list(doc = "More options of zel8, such as -Os"),
}

def _assemble(ctx, src):
    object = ctx.actions.declare_file("_objs/%s/%s.obj" % (ctx.label.name, src.basename[:-len(src.extension) - 1]))
    words = ctx.actions.args()
    words.add("-mcpu=" + ctx.attr.chip)
    words.add_all(ctx.attr.copts)
    words.add_all(["/".join([p for p in [ctx.label.package, i] if p]) for i in ctx.attr.includes], before_each = "-I")
    words.add_all(ctx.attr.defines, before_each = "-D")
    words.add_all(["-c", "-o", object, src])
    ctx.actions.run(
        executable = ctx.file._zel8.path,
        arguments = [words],
        inputs = depset([src] + ctx.files.hdrs, transitive = [ctx.attr._files.files]),
        outputs = [object],
        mnemonic = "Zel8Assemble",
        progress_message = "Assembling " + src.short_path,
    )
    return object

def _zel8_object(ctx):
    return [DefaultInfo(files = depset([_assemble(ctx, src) for src in ctx.files.srcs]))]

zel8_object = rule(
    implementation = _zel8_object,
    doc = "An object of each source, for the deps of programs",
    attrs = dict(_module, srcs = attr.label_list(allow_files = [".as", ".asm", ".s", ".S"], mandatory = True), **_tools),
)

def _zel8_binary(ctx):
    program = ctx.actions.declare_file(ctx.label.name + "." + ctx.attr.format)
    objects = [_assemble(ctx, src) for src in ctx.files.srcs] + ctx.files.deps
    words = ctx.actions.args()
    words.add("-mcpu=" + ctx.attr.chip)
    words.add_all(ctx.attr.linkopts)
    words.add_all(["-o", program])
    words.add_all(objects)
    ctx.actions.run(
        executable = ctx.file._zel8.path,
        arguments = [words],
        inputs = depset(objects, transitive = [ctx.attr._files.files]),
        outputs = [program],
        mnemonic = "Zel8Link",
        progress_message = "Linking " + program.short_path,
    )
    return [DefaultInfo(files = depset([program]))]

zel8_binary = rule(
    implementation = _zel8_binary,
    doc = "A program for the chip",
    attrs = dict(
        _module,
        srcs = attr.label_list(allow_files = [".as", ".asm", ".s", ".S"]),
        deps = attr.label_list(allow_files = [".obj", ".a"], doc = "Objects, archives, targets of zel8_object"),
        linkopts = attr.string_list(doc = "More options of zel8 for the link, such as -Wl,--check"),
        format = attr.string(default = "hex", values = ["hex", "bin", "elf"]),
        **_tools
    ),
)

def _zel8_test(ctx):
    script = ctx.actions.declare_file(ctx.label.name + ".sh")
    words = ["-mcpu=" + ctx.attr.chip, "--strict"] + ctx.attr.simopts
    if ctx.file.script:
        words.append("--script=" + ctx.file.script.short_path)
    words.append(ctx.file.program.short_path)
    quoted = " ".join(["'" + w.replace("'", "'\\''") + "'" for w in words])
    ctx.actions.write(script, "#!/bin/sh\nexec '%s' %s\n" % (ctx.file._zelsim.short_path, quoted), is_executable = True)
    files = [ctx.file.program] + ([ctx.file.script] if ctx.file.script else [])
    return [DefaultInfo(
        executable = script,
        runfiles = ctx.runfiles(files = files, transitive_files = ctx.attr._files.files),
    )]

zel8_test = rule(
    implementation = _zel8_test,
    doc = "Runs a program in the simulator; the script tells what is expected",
    test = True,
    attrs = dict(
        _tools,
        chip = attr.string(mandatory = True),
        program = attr.label(allow_single_file = [".hex", ".bin", ".elf"], mandatory = True),
        script = attr.label(allow_single_file = True),
        simopts = attr.string_list(doc = "Options of zelsim"),
    ),
)
