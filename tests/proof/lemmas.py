#!/usr/bin/python3
"""Checks lemmas of docs/proofs.md with z3 (Debian: python3-z3). The exit status is 1 if one is false or undecided."""
import sys

from z3 import And, BitVec, Int, Not, Or, Solver, unsat


def holds(name, assumption, statement):
    solver = Solver()
    solver.set("timeout", 120000)
    solver.add(assumption, Not(statement))
    verdict = solver.check()
    print(f"{name}: {'holds' if verdict == unsat else 'NOT PROVEN: ' + str(verdict)}", flush=True)
    return verdict == unsat


def blocks(size):
    """Every pixel is in a block of this size, and each block ends inside the image."""
    count, head, pixel = Int("count"), Int("head"), Int("pixel")
    domain = And(count >= size, head >= 1, head <= size, pixel >= 0, pixel < count)
    nth = (pixel - head) / size  # the floor, the block after the first that would hold the pixel
    start = head + size * nth
    covered = Or(pixel < size, And(pixel >= head, start <= pixel, pixel < start + size, start + size <= count),
                 And(pixel >= count - size, count - size >= 0))
    return holds(f"blocks of {size} overlap and cover each pixel", domain, covered)


def nested_floors():
    """A column blend by a shift of 10 and one of 5 equals one shift of 15."""
    top, change, y = (BitVec(name, 32) for name in ("top", "change", "y"))
    bottom = top + change
    domain = And(top >= 0, top <= 8160, bottom >= 0, bottom <= 8160, change >= -8160, change <= 8160, y >= 0, y < 1024)
    return holds("the column blend in two shifts equals one by 15", domain,
                 (top * 1024 + change * y) >> 15 == (top + ((change * y) >> 10)) >> 5)


def offsets():
    """The byte offset of a source within the limits fits 31 bits, its factors 16 signed ones."""
    row, column, width = Int("row"), Int("column"), Int("width")
    domain = And(width >= 2, width <= 10922, row >= 0, row <= 32765, column >= 0, column <= width - 2)
    return holds("offsets fit 31 bits and their factors 15", domain,
                 And(row * 3 * width + 3 * column < 2**31, 3 * width < 2**15, column < 2**15))


if __name__ == "__main__":
    sys.exit(0 if all([blocks(16), blocks(32), nested_floors(), offsets()]) else 1)
