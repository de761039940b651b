#!/usr/bin/env python3
"""Power cuts: kills a gateway with all that is in its sandbox at a random moment of its writing, tears what was
being written on the flash, starts it again and has it checked (writer.py). Only the flash outlives a cut."""
import argparse
import collections
import contextlib
import os
import random
import re
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from gateway import PATIENCE, Wrong

HERE = os.path.dirname(os.path.realpath(__file__))
# What becomes of the files at a cut, and how often: nothing; what was being written is torn; the last pages of
# what was written before, too; those of the copy as well; the end of the board's own settings.
DAMAGES = {"none": 8, "begun": 4, "area1": 7, "all": 1, "area2": 1}
PAGE, SECTOR = 4096, 512
MANY = 200  # cuts in which each damage is seen
OWED = ("checked", "while it started", "torn: nothing", "torn: a change in the making", "torn: the last pages",
        "torn: the last pages and the copy", "torn: area 2")
ANY = 1 << 30  # changes that may be lost where what has them twice is torn twice
CHANGE = b"change 0000000074 bytes\nX_KVO_Torn\0=" + bytes(range(65, 93)) + b"\0" + b"01234567\n"


def tail(rng, size):
    """What stands in the place of bytes that were not written."""
    return rng.choice([b"", bytes(size), rng.randbytes(size)])


def torn(rng, data, unit):
    """The bytes of a file without its last pages, and where those begin. It does not end where a commit does: that
    could not be told."""
    start = rng.randrange(max(0, len(data) - 2 * PAGE), len(data)) // unit * unit
    torn_off = data[:start] + tail(rng, len(data) - start)
    if re.search(rb"[0-9a-f]{8}\n$", torn_off):
        return torn_off[:-1], min(start, len(torn_off) - 1)
    return torn_off, start


def tear(rng, flash, damage):
    """Returns the damage that the next start sees, how many changed settings it may cost, and what was torn."""
    def rewrite(name, unit=SECTOR):
        """How many settings of the file do not stand in commits before what was torn."""
        with open(f"{flash}/{name}", "r+b") as file:
            data = file.read()
            now, start = torn(rng, data, unit)
            file.seek(0)
            file.truncate()
            file.write(now)
        begins = [head.start() for head in re.finditer(rb"change \d{10} bytes\n", data)]
        lost = max([begin for begin in begins if begin <= start], default=0)
        return data.count(b"\0", lost) // 2  # a text for the key, one for the value

    if damage == "none" or not os.path.exists(f"{flash}/area1"):
        return "none", 0, "nothing"
    if damage == "area2":
        rewrite("area2", 1)
        return "area2", 0, "area 2"
    if os.path.exists(f"{flash}/area1.new"):  # it was all being written anew
        if os.path.getsize(f"{flash}/area1.new"):
            rewrite("area1.new")
        return "none", 0, "the file in the making"
    if damage == "begun":
        with open(f"{flash}/area1", "ab") as file:
            written = rng.randrange(1, len(CHANGE))
            file.write(CHANGE[:written] + tail(rng, len(CHANGE) - written))
        return "begun", 0, "a change in the making"
    changes = rewrite("area1")
    if damage == "all" and os.path.exists(f"{flash}/area1.1"):
        rewrite("area1.1")
        return "all", ANY, "the last pages and the copy"
    return "area1", changes, "the last pages"


def first_process(process):
    """The sandbox's first process, once there is one."""
    limit = time.monotonic() + PATIENCE
    while time.monotonic() < limit:
        try:
            with open(f"/proc/{process.pid}/comm", encoding="ascii") as name:
                with open(f"/proc/{process.pid}/task/{process.pid}/children", encoding="ascii") as file:
                    if name.read() == "bwrap\n" and (inner := file.read().split()):
                        return int(inner[0])
        except OSError:
            pass
        time.sleep(0.001)
    process.kill()
    raise Wrong(f"no sandbox in {PATIENCE} s: its own words are above")


def lines(out):
    """What is said in the sandbox, line by line, to its end. Who waits there for an answer gives up before."""
    rest = b""
    while select.select([out], [], [], 3 * PATIENCE)[0]:
        if not (piece := os.read(out.fileno(), 1 << 16)):
            return
        *whole, rest = (rest + piece).split(b"\n")
        yield from (line.decode() for line in whole)
    raise Wrong(f"it hangs: nothing was said in {3 * PATIENCE} s")


def power(rng, sandbox, state, expected, cut, counts):
    """From one start to its cut; `expected` is what a cut before has done, that of number `cut`. Whether the gateway
    had come up. Raises Wrong."""
    process = subprocess.Popen(
        [*sandbox, "--state", state, "--bare", "--", "python3", f"{HERE}/writer.py", *map(str, expected), str(cut), str(rng.random())],
        stdout=subprocess.PIPE)
    first, heard, seen = first_process(process), lines(process.stdout), collections.Counter()

    def note(line):
        what, *words = line.split()
        seen[what] += 1
        if what == "wrong":
            raise Wrong(line[6:])
        if what == "checked":
            seen["changes in flight"] += int(words[0])
            seen["changes lost, and said"] += int(words[1])

    try:
        wanted, pause = rng.randint(1, 60), rng.random()
        if rng.random() < 0.1:
            time.sleep(pause)  # while it starts
        else:
            while seen["confirmed"] < wanted:
                if not (line := next(heard, None)):
                    raise Wrong("it ended by itself")
                note(line)
            time.sleep(pause / 50)  # within a change, not between two
    finally:
        with contextlib.suppress(ProcessLookupError):  # it has ended by itself
            os.kill(first, signal.SIGKILL)  # and the kernel ends all others in there at once
        process.wait()
    for line in heard:
        note(line)
    up = seen.pop("up", 0)
    seen["while it started"] = int(not up)
    counts.update(seen)
    return bool(up)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cuts", type=int, required=True)
    parser.add_argument("--seed", type=int, required=True)
    parser.add_argument("sandbox", nargs="+", help="its command line, behind --")
    options = parser.parse_args()
    counts, expected, begin = collections.Counter(), ("none", 0), time.monotonic()
    folder = tempfile.mkdtemp(prefix="soak_cuts_")
    state, wrong, said, last = f"{folder}/state", None, begin, -1
    for number in range(options.cuts + 1):  # the last start checks what the last cut left
        rng = random.Random(f"{options.seed}/{number}")
        try:
            if os.path.exists(state):
                shutil.rmtree(f"{folder}/before", ignore_errors=True)
                shutil.copytree(state, f"{folder}/before")
            up = power(rng, options.sandbox, state, expected, last, counts)
            if up:
                damage = rng.choices(list(DAMAGES), DAMAGES.values())[0]
                *expected, what = tear(rng, f"{state}/nvram", damage)
                counts[f"torn: {what}"] += 1
                last = number
        except Exception as error:  # pylint: disable=broad-except # a damaged line, a file that is not there
            wrong = error
            break
        if time.monotonic() - said > 10:
            said = time.monotonic()
            print(f"soak: cut {number}, {counts['confirmed']} changes, {said - begin:.0f} s", file=sys.stderr)
    counts["cuts"] = number
    for name in sorted(counts):
        print(f"{name:32}{counts[name]:>10}")
    print(f"{'seconds':32}{time.monotonic() - begin:>10.0f}")
    never = [what for what in (OWED if options.cuts >= MANY else OWED[:1]) if not counts[what]]
    if never and not wrong:
        wrong = Wrong(f"in all of them these were never seen: {', '.join(never)}")
    if wrong:
        sys.exit(f"soak: seed {options.seed}, cut {number}: {type(wrong).__name__}: {wrong}\nsoak: the flash as it was is in "
                 f"{folder}/before; again: script/soak --cuts {number} --seed {options.seed}")
    shutil.rmtree(folder)


if __name__ == "__main__":
    main()
