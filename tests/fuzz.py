"""Runs random pages and hostile hosts from fresh seeds until the time is up.

Cases run in a child process, so that a crash is a finding too: the seed is printed, tried again at
smaller scales, and the smallest that still fails is shown.
"""

import argparse
import gc
import subprocess
import sys
import time

SCALES = (0.05, 0.1, 0.25, 0.5, 1.0)
BATCH = 200


def one_case(seed, scale):
    """Run one case: a page compared with the plain model, or a host that changes it meanwhile."""
    import differential
    from pages import Source
    from saboteur import Saboteur

    junk = [0.0, 0.01, 0.1][seed % 3]
    if seed % 2:
        differential.one_page(seed, junk, scale)
    else:
        Saboteur(Source(seed, junk, scale)).run()


def child(first, count, scale):
    """Run a batch of cases, the seed of each printed before it."""
    gc.freeze()  # so that the many collections go through the pages alone
    for seed in range(first, first + count):
        print(seed, flush=True)
        one_case(seed, scale)


def fails(seed, count, scale):
    """Return the last seed of a batch and what it printed when it fails, else None."""
    command = [sys.executable, __file__, "--child", str(seed), str(count), str(scale)]
    streams = {"capture_output": True, "text": True, "errors": "replace"}
    done = subprocess.run(command, check=False, **streams)
    return (int(done.stdout.split()[-1]), done.stderr) if done.returncode else None


def main(seconds, first):
    """Run batches for that many seconds; return whether any case failed."""
    started = time.monotonic()
    seed = first
    found = 0
    while time.monotonic() - started < seconds:
        failure = fails(seed, BATCH, 1.0)
        if failure is None:
            seed += BATCH
            continue
        found += 1
        bad, report = failure
        scale = next((one for one in SCALES if fails(bad, 1, one)), None)
        how = "only after the cases before it" if scale is None else f"from scale {scale}"
        print(f"seed {bad} fails, {how}: fuzz.py --child {bad} 1 {scale or 1.0}\n{report[-3000:]}")
        seed = bad + 1
    print(f"fuzz: {seed - first} cases from seed {first} in {seconds} s, {found} failed")
    return bool(found)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--first", type=int, default=time.time_ns() // 1000 % 10**9)
    parser.add_argument("--child", nargs=3, metavar=("FIRST", "COUNT", "SCALE"))
    options = parser.parse_args()
    if options.child:
        child(int(options.child[0]), int(options.child[1]), float(options.child[2]))
    else:
        sys.exit(main(options.seconds, options.first))
