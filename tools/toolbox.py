"""Runs commands, and makes environments of tools from Python's package index.

    python toolbox.py NAME PACKAGE...    # prints the folder of an environment that is made once

Ends with status 77 where the index does not answer.
"""

import fcntl
import os
import shutil
import subprocess
import sys
from pathlib import Path
from typing import NoReturn

ROOT = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ["GROUNDING_FIT_BUILD"])


def cannot(why: str) -> NoReturn:
    """End a step that cannot be done here."""
    print(why, file=sys.stderr)
    sys.exit(77)


def run(*command: object, cwd: Path = ROOT, **variables: object) -> None:
    """Run a command with these variables in its environment; end with it when it fails."""
    env = {**os.environ, **{name: str(value) for name, value in variables.items()}}
    if status := subprocess.call(command, cwd=cwd, env=env):
        sys.exit(f"status {status} of {' '.join(map(str, command))}")


def output(*command: object) -> str:
    """Return what a command prints."""
    return subprocess.check_output(command, text=True)


def pip(place: Path, *arguments: object) -> bool:
    """Tell whether the environment's pip could do this."""
    command = [place / "bin/pip", *arguments, "--quiet", "--quiet", "--retries", "1"]
    return subprocess.call(command, stdout=sys.stderr) == 0


def environment(name: str, *packages: str) -> Path:
    """Return the folder of a virtual environment that holds these packages."""
    place = BUILD / f"{name}-{sys.implementation.cache_tag}"
    ready, wanted = place / "ready", "\n".join([sys.executable, *packages])
    with open(f"{place}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not ready.exists() or ready.read_text() != wanted:
            shutil.rmtree(place, ignore_errors=True)
            subprocess.run([sys.executable, "-m", "venv", place], stdout=sys.stderr, check=True)
            if not pip(place, "install", *packages):
                if pip(place, "download", "--no-deps", "--dest", place, "pip"):
                    sys.exit(f"{name}: the package index does not have all of {packages}")
                cannot("the package index does not answer")
            ready.write_text(wanted)
    return place


if __name__ == "__main__":
    print(environment(*sys.argv[1:]))
