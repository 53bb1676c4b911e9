"""Makes Debian trees below the build folder, and runs in a bare one what a newcomer runs.

    python trees.py SUITE    # trixie, sid, ...

Ends with status 77 where no tree can be made.
"""

import fcntl
import shutil
import subprocess
import sys
import time
import urllib.request
from collections.abc import Callable
from pathlib import Path

from toolbox import BUILD, ROOT, cannot, run

MIRROR = "http://deb.debian.org/debian"
FRESH_SECONDS = 28 * 24 * 3600


def debootstrap(
    place: Path, suite: str, *options: str, finish: Callable[[Path], None] = lambda made: None
) -> None:
    """Make a tree and finish it, unless it was made in the last weeks."""
    place.parent.mkdir(parents=True, exist_ok=True)
    with open(f"{place}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        stamp = place.with_name(f"{place.name}.made")
        if stamp.exists() and time.time() - stamp.stat().st_mtime < FRESH_SECONDS:
            return
        try:
            urllib.request.urlopen(f"{MIRROR}/dists/{suite}/InRelease", timeout=60).close()
        except OSError as error:
            cannot(f"{MIRROR}: {error}")
        made = place.with_name(f"{place.name}.new")
        shutil.rmtree(made, ignore_errors=True)
        command = ["debootstrap", "--variant=minbase", *options, suite, made, MIRROR]
        subprocess.run(command, stdout=sys.stderr, check=True)
        finish(made)
        stamp.unlink(missing_ok=True)
        shutil.rmtree(place, ignore_errors=True)
        made.rename(place)
        stamp.touch()


def newcomer(suite: str) -> None:
    """Run the README's two commands in a tree, then the tests on every CPython that it has."""
    if subprocess.call(["unshare", "--mount", "true"]):
        cannot("nothing can be mounted here")
    tree = BUILD / "trees" / suite
    debootstrap(tree, suite)
    shutil.rmtree(tree / "src", ignore_errors=True)
    left_out = shutil.ignore_patterns("build", ".git", ".*_cache", "__pycache__")
    shutil.copytree(ROOT, tree / "src", ignore=left_out)
    run("unshare", "--mount", "tools/newcomer.sh", tree)


if __name__ == "__main__":
    newcomer(sys.argv[1])
