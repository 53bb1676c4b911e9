"""Runs steps, a few at a time, and tells in their order how each went.

Standard input has a step a line: NAME|WHY IT CANNOT RUN HERE|COMMAND, which is bash's. A command
that ends with status 77 found that it cannot run here, and says why in its last line.

    python run_steps.py TITLE <PLAN
"""

import os
import re
import signal
import subprocess
import sys
import time
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

AT_ONCE = 2  # many a step keeps one core busy, or waits; three took as long on two cores
CANNOT_RUN = 77
LOGS = Path(os.environ["CHECK"])


def run(step: str) -> tuple[str, str, str]:
    """Run a step with its output in a file; return its name, how it went, and what else to say."""
    name, lacking, command = step.split("|", 2)
    if lacking:
        return name, "not run", lacking
    log = LOGS / (re.sub(r"[^\w.+]", "_", name) + ".log")
    started = time.monotonic()
    with log.open("wb") as file:
        shell = ["bash", "-euo", "pipefail", "-c", command]
        status = subprocess.call(shell, stdin=subprocess.DEVNULL, stdout=file, stderr=file)
    took = f"{time.monotonic() - started:4.0f} s"
    output = log.read_text(encoding="utf-8", errors="replace").splitlines()
    if status == CANNOT_RUN:
        return name, "not run", output[-1]
    return (name, "FAILED", "\n".join([took, *output[-40:]])) if status else (name, "ok", took)


def main() -> int:
    """Run all steps, and sum up."""
    # Who is started in the background ignores interrupts, and so would the tests of interrupts.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    started = time.monotonic()
    LOGS.mkdir(parents=True, exist_ok=True)
    names: dict[str, list[str]] = {"ok": [], "FAILED": [], "not run": []}
    with ThreadPoolExecutor(AT_ONCE) as pool:
        for name, word, told in pool.map(run, sys.stdin.read().splitlines()):
            print(f"{name:<46} {word:<8}{told}", flush=True)
            names[word].append(name)
    failed, not_run = ("; ".join(names[word]) or "none" for word in ("FAILED", "not run"))
    done = len(names["ok"]) + len(names["FAILED"])
    counted = f"{len(names['FAILED'])} of {done} failed ({failed}), not run: {not_run}"
    print(f"{sys.argv[1]}: {counted}, {time.monotonic() - started:.0f} s")
    return 1 if names["FAILED"] else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
