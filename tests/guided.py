"""Draws pages and hostile hosts from bytes that a fuzzer changes, guided by what of the C++ ran.

What it starts from are the pages of other tests, written down as the bytes that draw them.

    python guided.py FOLDER SECONDS     # FOLDER keeps what was found to run more
"""

import gc
import random
import sys
from pathlib import Path

import atheris

import differential
import pages
import saboteur

STARTS = 300  # pages that it starts from
SCALE = 0.25  # of pages: smaller ones are drawn sooner
DRAWN_BYTES = 2  # of a random number


class Drawn(random.Random):
    """Numbers from bytes in place of random ones; zeros where there are no more."""

    def __init__(self, data):
        self.data = data
        self.at = 0
        super().__init__()

    def getrandbits(self, bits):
        count = -(-bits // 8)
        drawn = self.take(count)
        return drawn >> (8 * count - bits)

    def take(self, count):
        self.at += count
        return int.from_bytes(self.data[self.at - count : self.at], "little")

    def random(self):
        return self.getrandbits(8 * DRAWN_BYTES) / 2 ** (8 * DRAWN_BYTES)


class WrittenDown(Drawn):
    """The same of random bytes, which it keeps."""

    def __init__(self, seed):
        super().__init__(bytearray())
        self.bytes = random.Random(seed)

    def take(self, count):
        self.data += self.bytes.randbytes(count)
        return super().take(count)


def one_case(drawn):
    """Run one case: a page compared with the plain model, or a host that changes it meanwhile."""
    junk = drawn.choice([0.0, 0.01, 0.1])
    if drawn.getrandbits(2):
        differential.one_page(drawn, junk, SCALE)
    else:
        saboteur.Saboteur(pages.Source(drawn, junk, SCALE)).run()


def start(folder):
    """Write down what draws the pages that are there at the start."""
    folder.mkdir(parents=True, exist_ok=True)
    for seed in range(STARTS):
        drawn = WrittenDown(seed)
        one_case(drawn)
        (folder / f"page{seed}").write_bytes(drawn.data)


def main(folder, seconds):
    """Run cases for that many seconds."""
    start(Path(folder, "pages"))
    gc.freeze()  # so that the many collections go through the pages alone
    options = [f"-max_total_time={seconds}", "-max_len=20000", "-rss_limit_mb=4096"]
    options += ["-print_final_stats=1", "-timeout=60", f"-artifact_prefix={folder}/"]
    folders = [str(Path(folder, "pages"))]
    atheris.Setup([sys.argv[0], *options, *folders], lambda data: one_case(Drawn(data)))
    atheris.Fuzz()


if __name__ == "__main__":
    main(*sys.argv[1:])
