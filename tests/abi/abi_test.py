#!/usr/bin/env python3
"""What a linker and a loader see of the two shared libraries.

usage: abi_test.py CHECK SOURCE_DIR BUILD_DIR
"""

import pathlib
import re
import subprocess
import sys

CHECKS = {}


def check(function):
    CHECKS[function.__name__] = function
    return function


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(library, which):
    """name -> (address, type) of the dynamic symbols; the name with its version if it has one."""
    found = {}
    for line in run("nm", "-D", which, library).splitlines():
        *address, kind, name = line.split()
        found[name] = (address[0] if address else None, kind)
    return found


class Tree:
    def __init__(self, source, build):
        self.source = pathlib.Path(source)
        self.build = pathlib.Path(build)
        self.plintor = str(self.build / "libplintor.so.3")
        self.vestan = str(self.build / "base" / "libvestan.so.3")

    def lines(self, name):
        return (self.source / name).read_text().split("\n")[:-1]


def same(what, expected, found):
    expected, found = set(expected), set(found)
    if expected != found:
        sys.exit(f"{what}: missing {sorted(expected - found)}, too many {sorted(found - expected)}")


@check
def exports(tree):
    """Exactly the listed names, unversioned, every one an ordinary function."""
    for library, listed in ((tree.plintor, "abi/exports.txt"), (tree.vestan, "base/exports.txt")):
        names = tree.lines(listed)
        assert names == sorted(set(names)), f"{listed} is not sorted or repeats a name"
        found = symbols(library, "--defined-only")
        same(listed, names, found)
        wrong = [name for name, (_, kind) in found.items() if kind != "T"]
        assert not wrong, f"not plain functions: {wrong}"
    assert len(tree.lines("abi/exports.txt")) == 527


@check
def imports(tree):
    """The base library's functions are left to the program; all else is the C library's."""
    undefined = symbols(tree.plintor, "--undefined-only")
    ours = [n for n, (_, kind) in undefined.items() if "@" not in n and kind == "U"]
    same("abi/imports.txt", tree.lines("abi/imports.txt"), ours)
    # Weak ones are the start files' own: __cxa_finalize, __gmon_start__, _ITM_*.
    versions = {n.rsplit("@", 1)[1] for n in undefined if "@" in n}
    strange = [v for v in versions if not v.startswith("GLIBC_")]
    assert not strange, strange
    checked = [n for n in undefined if re.search(r"_chk@", n)]
    assert not checked, f"fortified calls cannot be interposed by name: {checked}"
    large = [n for n in undefined if re.search(r"64@", n)]
    assert not large, f"renamed calls cannot be interposed by name: {large}"


@check
def aliases(tree):
    """Names that are one function have one address; all others have one of their own."""
    found = symbols(tree.plintor, "--defined-only")
    groups = [line.split() for line in tree.lines("abi/aliases.txt")]
    owner = {}
    for group in groups + [[n] for n in found if not any(n in g for g in groups)]:
        addresses = {found[name][0] for name in group}
        assert len(addresses) == 1, f"not one function: {group}"
        address = addresses.pop()
        assert address not in owner, f"one function: {group} and {owner[address]}"
        owner[address] = group


@check
def dynamic_section(tree):
    """Nothing to load but the C library; bound at start, never unmapped, no executable stack."""
    for library, allowed in ((tree.plintor, {"libc.so.6", "libm.so.6"}),
                             (tree.vestan, {"libc.so.6", "libmd.so.0"})):
        dynamic = run("readelf", "-dW", library)
        needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
        assert needed <= allowed, f"{library} needs {needed}"
        assert re.search(r"FLAGS_1.*\bNOW\b.*\bNODELETE\b", dynamic), dynamic
        assert "SYMBOLIC" not in dynamic
        assert "TEXTREL" not in dynamic
        soname = re.search(r"\(SONAME\).*\[(.*)\]", dynamic).group(1)
        assert soname == pathlib.Path(library).name
        headers = run("readelf", "-lW", library)
        assert "GNU_RELRO" in headers
        assert re.search(r"GNU_STACK.* RW ", headers), headers


@check
def nothing_runs_at_load(tree):
    """No constructor of ours: the start files' own entry is the only one, and no ifunc resolves."""
    # 8 bytes: crtbegin's frame_dummy and __do_global_dtors_aux. clang's start files are the same.
    dynamic = run("readelf", "-dW", tree.plintor)
    for array in ("INIT_ARRAYSZ", "FINI_ARRAYSZ"):
        size = re.search(rf"\({array}\)\s+(\d+)", dynamic)
        assert size and size.group(1) == "8", f"{array}: {size and size.group(1)}"
    table = run("readelf", "-sW", tree.plintor)
    assert " IFUNC " not in table
    assert "_GLOBAL__sub_I" not in table
    assert "__cxa_guard" not in table


@check
def wide_registers(tree):
    """Registers over 16 bytes stay in folders of kernels: elsewhere nothing asks the processor."""
    objects = sorted((tree.build / "CMakeFiles" / "plintor_objects.dir").rglob("*.o"))
    assert objects
    for each in objects:
        wide = re.search(r"%[yz]mm\d", run("objdump", "-d", "--no-show-raw-insn", str(each)))
        assert not wide or "kernels" in each.parts, f"{each} uses {wide.group(0)}"


@check
def text_size(tree):
    """The library stays small enough to share a cache with its program."""
    size = int(run("size", tree.plintor).splitlines()[1].split()[0])
    assert size < 1.5 * 1024 * 1024, size


HEADER_CALLS = """
#include <plintor.h>
#include <vestan.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/socket.h>
#include <plintor.h>
int main(void) { struct statvfs st; Tbl *t = newtbl(0); return std_statvfs("/", &st) + (int)lentbl(t); }
"""


@check
def headers(tree):
    """Each public header compiles alone and beside the other, in every standard, without a word."""
    for compiler, language, standards in (
            ("gcc", "c", ("c99", "c11", "gnu17")), ("clang", "c", ("c99", "c11", "gnu17")),
            ("g++", "c++", ("c++11", "c++17", "c++20")),
            ("clang++", "c++", ("c++11", "c++17", "c++20"))):
        for standard in standards:
            for text in ("#include <plintor.h>\n", "#include <vestan.h>\n", HEADER_CALLS):
                subprocess.run(
                    [compiler, "-x", language, f"-std={standard}", "-Wall", "-Wextra", "-Wpedantic",
                     "-Werror", "-fsyntax-only", f"-I{tree.source}/include",
                     f"-I{tree.source}/frame", "-"], input=text, text=True, check=True)


@check
def declared(tree):
    """Header and export list name the same functions."""
    for header, listed in (("include/plintor.h", "abi/exports.txt"),
                           ("frame/vestan.h", "base/exports.txt")):
        # The address of each name, in an object that asks the linker for it.
        names = tree.lines(listed)
        uses = "".join(f"  (void (*)(void)){name},\n" for name in names)
        source = f"#include \"{tree.source}/{header}\"\nvoid (*const all[])(void) = {{\n{uses}}};\n"
        subprocess.run(["gcc", "-x", "c", "-std=c11", "-Wno-cast-function-type", "-fsyntax-only",
                        "-"], input=source, text=True, check=True)
        text = re.sub(r"/\*.*?\*/", "", (tree.source / header).read_text(), flags=re.S)
        text = re.sub(r"^\s*#.*$", "", text, flags=re.M)
        found = re.findall(r"^(?!static)(?:\w[\w ]*?[ *]+)(\w+)\(", text, flags=re.M)
        same(header, names, [n for n in found if n not in ("__attribute__", "lentbl")])


if __name__ == "__main__":
    name, source_dir, build_dir = sys.argv[1:]
    CHECKS[name](Tree(source_dir, build_dir))
