"""Lays out CPythons of Debian's below the build folder: unpacked, not installed.

Each is a command, which is also what it starts again as `sys.executable`. qemu runs those of other
machines.

    python foreign.py MACHINE VERSION    # aarch64 3.11: prints the command

Ends with status 77 where there is none.
"""

import platform
import shutil
import sys
from pathlib import Path

from toolbox import BUILD, cannot, run
from trees import debootstrap

ARCHITECTURES = {"aarch64": "arm64", "x86_64": "amd64"}
SUITES = {"3.11": "bookworm", "3.13": "trixie", "3.14": "sid", "3.15": "sid"}
START = """#!/bin/sh
# No package was set up, so nothing is compiled yet, which would be done anew at every start.
export PYTHONDONTWRITEBYTECODE= PYTHONPYCACHEPREFIX={root}/compiled
exec {run} "$0" {program} "$@"
"""


def unpack(made: Path) -> None:
    """Lay out what is in the packages that a tree holds; the first one makes the tree's links."""
    packages = sorted((made / "var/cache/apt/archives").glob("*.deb"))
    for package in sorted(packages, key=lambda each: not each.name.startswith("base-files_")):
        run("dpkg-deb", "-x", package, made)
        package.unlink()


def runner(root: Path, machine: str) -> str:
    """Return what runs a program of a tree, up to where the program's own name goes."""
    if machine != platform.machine():
        return f"qemu-{machine}-static -L {root} -0"
    libraries = root / f"usr/lib/{machine}-linux-gnu"
    [loader] = libraries.glob("ld-linux-*")  # the tree's, which knows its newer C library
    return f"{loader} --library-path {libraries} --argv0"


def start(root: Path, machine: str, version: str) -> Path:
    """Return the command that starts a CPython of a tree."""
    command = root / f"usr/bin/python{version}"
    program = root / f"usr/libexec/python{version}"
    if not program.exists():
        headers = root / "usr/include"
        own = headers / f"{machine}-linux-gnu/python{version}/pyconfig.h"
        shutil.copy(own, headers / f"python{version}/pyconfig.h")  # else it asks a compiler's paths
        program.parent.mkdir(exist_ok=True)
        command.rename(program)
        command.touch(mode=0o755)
    starts = START.format(root=root, run=runner(root, machine), program=program)
    if command.read_text() != starts:  # as where the tree was moved
        command.write_text(starts)
    return command


def laid_out(machine: str, version: str) -> Path:
    """Return the command of a CPython."""
    if version not in SUITES:
        cannot(f"no Debian has CPython {version}")
    suite = SUITES[version]
    names = [f"python{each}" for each, of in SUITES.items() if of == suite]
    packages = [name + part for name in names for part in ("", "-dev")]
    options = [f"--arch={ARCHITECTURES[machine]}", f"--include={','.join(packages)}"]
    root = BUILD / "trees" / f"{suite}-{machine}"
    debootstrap(root, suite, "--download-only", *options, finish=unpack)
    return start(root, machine, version)


if __name__ == "__main__":
    print(laid_out(*sys.argv[1:]))
