"""Steps of ./dev check that need more than a line: `python steps.py NAME` runs one."""

import os
import platform
import re
import shutil
import subprocess
import sys
from pathlib import Path
from sysconfig import get_path

from toolbox import ROOT, cannot, output, run

BUILT = Path(os.environ["BUILT"])
CHECK = Path(os.environ["CHECK"])
LINES, BRANCHES = "98", "90"  # percent of the C++ that the tests run at the least
SOURCES = ROOT / "workers/wiki/grounding_fit"
KERNELS = ("portable", "avx2", "avx512")
PICKLED = """import pickle, workers.wiki.grounding_fit as fit
block = fit.FactBlock("text")
assert pickle.loads(pickle.dumps(block)) == block and type(block).__module__ == fit.__name__"""


def fresh(name: str) -> Path:
    """Return an empty folder for a step's files."""
    shutil.rmtree(CHECK / name, ignore_errors=True)
    return CHECK / name


def the_module(folder: Path) -> Path:
    """Return the module in a folder, which has only one."""
    [module] = folder.glob("grounding_fit.*.so")
    return module


def references() -> None:
    """Count all references, on a CPython that can."""
    run("./dev", "build", "--preset", "counted", PYTHON="python3.11-dbg")
    counted = BUILT.parent / "cpython-311d-counted"
    assert "_Py_RefTotal" in output("nm", "-D", "--undefined-only", the_module(counted))
    run(counted / "python", "tests/differential.py", "--pages", "300", "--count-references")


def coverage() -> None:
    """See that the tests run nearly all lines of C++, and branches but those that exceptions take.

    What is left is listed in docs/changing.md.
    """
    built = BUILT.with_name(BUILT.name.replace("strict", "coverage"))
    for old in built.rglob("*.gcda"):
        old.unlink()  # runs are added up
    run("./dev", "test", "--preset", "coverage", "-E", "workbench")
    ours = ["--filter", "workers/", "--exclude-throw-branches", "--exclude-unreachable-branches"]
    least = ["--fail-under-line", LINES, "--fail-under-branch", BRANCHES]
    run("gcovr", "--print-summary", *ours, *least, built)


def symbols() -> None:
    """See that the module exports its entry point alone, needs libc alone, and is hardened."""
    run("./dev", "build", "--preset", "strict")
    module = the_module(BUILT)
    names, headers = output("nm", "-D", module), output("readelf", "-dlW", module)
    exported = re.findall(r"^[0-9a-f]+ \w (\S+)", names, re.MULTILINE)
    assert exported == ["PyInit_grounding_fit"], f"exported: {exported}"
    needed = re.findall(r"NEEDED.*\[(?!lib[cm]\.so|ld-linux)(.*)\]", headers)
    assert not needed, f"needed beside libc: {needed}"
    for hardened in ("GNU_RELRO", "GNU_STACK.*RW ", "BIND_NOW|FLAGS.*NOW"):
        assert re.search(hardened, headers), f"no {hardened} among its headers"
    assert re.search("__stack_chk_fail|_chk@", names), "neither stack nor copies are checked"


def installed() -> None:
    """Install the module into a host of its own, under the host's name for it."""
    host = fresh("host")
    sources = shutil.ignore_patterns("grounding_fit", "__pycache__")
    shutil.copytree(ROOT / "workers", host / "workers", ignore=sources)
    run("./dev", "install", "--preset", "strict", host / "workers/wiki")
    laid = [path for path in host.rglob("*") if path.is_file() and path.suffix != ".py"]
    assert len(laid) == 2, f"laid down: {laid}"
    module = the_module(host / "workers/wiki")
    assert os.fsencode(ROOT) not in module.read_bytes(), "the module names the checkout"
    run(os.environ["PYTHON"], "-c", PICKLED, cwd=host)


def stub() -> None:
    """Hold the stub against the module, and have Debian's type checker find it.

    It is found beside the module, there under the host's name for it, and in site-packages.
    """
    place, python = fresh("typed"), "/usr/bin/python3"
    run(python, "-m", "venv", "--without-pip", place / "venv")
    asked = "import sysconfig as s; print(s.get_python_version(), s.get_path('platlib'))"
    version, site = output(place / "venv/bin/python", "-c", asked).strip().split(maxsplit=1)
    for folder in (place / "beside", place / "host/workers/wiki", site):
        run("./dev", "install", "--preset", "quick", folder, PYTHON=version)
    program, hosted = ROOT / "tests/typed_use.py", place / "hosted.py"
    text = program.read_text(encoding="utf-8")
    text = text.replace("import grounding_fit as", "from workers.wiki import grounding_fit as")
    hosted.write_text(text.replace("from grounding_fit", "from workers.wiki.grounding_fit"))
    beside = f"{place / 'beside'}:{ROOT}"
    stubtest = [python, "-m", "mypy.stubtest", "grounding_fit"]
    run(*stubtest, cwd=place, PYTHONPATH=beside, MYPYPATH=place / "beside")
    run(python, program, cwd=place, PYTHONPATH=beside)
    mypy = [python, "-m", "mypy", "--strict", "--warn-unused-ignores"]
    run(*mypy, program, cwd=place, MYPYPATH=place / "beside")
    workbench = f"{place / 'beside'}:{ROOT / 'workbench'}"
    run(*mypy, "-p", "grounding_fit_workbench", cwd=place, MYPYPATH=workbench)
    run(*mypy, hosted, cwd=place, MYPYPATH=place / "host")
    run(*mypy, "--python-executable", place / "venv/bin/python", program, cwd=place)
    # Without any of them it is not found, so the three above were.
    assert subprocess.call([*mypy, program], cwd=place), "the stub is found where it was not laid"


def cluster() -> None:
    """Fit many pages through a scheduler and two worker processes of this machine."""
    from distributed import LocalCluster  # this CPython is the one of the environment that has it

    with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as workers:
        run(sys.executable, "examples/fit_many.py", "--dask", workers.scheduler_address)


def free_threaded() -> None:
    """Have the compilers read the module, as one unit, for this CPython without its lock."""
    unit = fresh("free_threaded") / "unit.cpp"
    unit.parent.mkdir()
    files = sorted(SOURCES.glob("*/*.cpp"))
    unit.write_text("".join(f'#include "{file}"\n' for file in files))
    options = "-std=c++20 -fsyntax-only -Wall -Wextra -Wshadow -Werror -DPy_GIL_DISABLED=1".split()
    names = ['-DGROUNDING_FIT_VERSION=""', f"-I{SOURCES}", "-isystem", get_path("include")]
    for compiler in ("g++", "clang++"):
        run(compiler, *options, *names, unit)


def kernels() -> None:
    """Test the kernels on this processor and on qemu's, of which one has no wide registers."""
    if platform.machine() != "x86_64":
        cannot("no x86-64 machine")
    run("./dev", "build", "--preset", "strict")
    test, path = BUILT / "tests/escape_growth_test", f"{BUILT}:{ROOT / 'tests'}:{ROOT}"
    tested = output(test)
    for processor in ("Nehalem", "max"):
        qemu = ["qemu-x86_64-static", "-cpu", processor]
        tested += output(*qemu, test)
        pages = ["tests/differential.py", "--edges", "0", "--pages", "100"]
        run(*qemu, os.environ["PYTHON"], *pages, PYTHONPATH=path)
    if missed := [name for name in KERNELS if f"{name}: tested" not in tested]:
        cannot(f"all but these, which neither this processor nor qemu's runs: {missed}")


STEPS = (references, coverage, symbols, installed, stub, cluster, free_threaded, kernels)
if __name__ == "__main__":  # the workers load this file too
    {each.__name__: each for each in STEPS}[sys.argv[1]]()
