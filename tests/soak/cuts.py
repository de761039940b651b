#!/usr/bin/env python3
"""Power cuts: kills a gateway with all that is in its sandbox at a random moment of its writing, tears what was
being written on the flash, starts it again and has it checked (writer.py). Only the flash outlives a cut."""
import argparse
import collections
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.realpath(__file__))
# What becomes of the files at a cut, and how often: nothing; what was being written is torn; the last pages of
# what was written before, too; those of the copy as well.
DAMAGES = {"none": 8, "begun": 4, "area1": 7, "all": 1}
PAGE = 4096
CHANGE = b"change 0000000074 bytes\nX_KVO_Torn\0=" + bytes(range(65, 93)) + b"\0" + b"01234567\n"


def tail(rng, size):
    """What stands in the place of bytes that were not written."""
    return rng.choice([b"", bytes(size), rng.randbytes(size)])


def torn(rng, data):
    """The bytes of a file without its last pages. It does not end where a commit does: that could not be told."""
    start = rng.randrange(max(0, len(data) - 2 * PAGE), len(data)) // 512 * 512
    torn_off = data[:start] + tail(rng, len(data) - start)
    return torn_off[:-1] if re.search(rb"[0-9a-f]{8}\n$", torn_off) else torn_off


def tear(rng, flash, damage):
    """Returns the damage that the next start sees."""
    def rewrite(name):
        with open(f"{flash}/{name}", "r+b") as file:
            data = torn(rng, file.read())
            file.seek(0)
            file.truncate()
            file.write(data)

    if damage == "none" or not os.path.exists(f"{flash}/area1"):
        return "none"
    if os.path.exists(f"{flash}/area1.new"):  # it was all being written anew
        if os.path.getsize(f"{flash}/area1.new"):
            rewrite("area1.new")
        return "none"
    if damage == "begun":
        with open(f"{flash}/area1", "ab") as file:
            written = rng.randrange(1, len(CHANGE))
            file.write(CHANGE[:written] + tail(rng, len(CHANGE) - written))
        return "begun"
    rewrite("area1")
    if damage == "all" and os.path.exists(f"{flash}/area1.1"):
        rewrite("area1.1")
    return damage


def first_process(process):
    """The sandbox's first process, once there is one."""
    limit = time.monotonic() + 60
    while time.monotonic() < limit:
        try:
            with open(f"/proc/{process.pid}/comm", encoding="ascii") as name:
                with open(f"/proc/{process.pid}/task/{process.pid}/children", encoding="ascii") as file:
                    if name.read() == "bwrap\n" and (inner := file.read().split()):
                        return int(inner[0])
        except OSError:
            pass
        time.sleep(0.001)
    raise SystemExit("soak: no sandbox in 60 s: its own words are above")


def power(rng, sandbox, state, expected, cut, counts):
    """From one start to its cut; `cut` is the one that did the expected damage. What was wrong, or None."""
    process = subprocess.Popen(
        [*sandbox, "--state", state, "--bare", "--", "python3", f"{HERE}/writer.py", expected, str(cut), str(rng.random())],
        stdout=subprocess.PIPE, text=True)
    first = first_process(process)
    try:
        wanted, pause = rng.randint(1, 60), rng.random()
        if rng.random() < 0.1:
            time.sleep(pause)  # while it starts
            counts["while it started"] += 1
            return None
        for line in process.stdout:
            what, *words = line.split()
            counts[what] += 1
            if what == "wrong":
                return line[6:-1]
            if what == "checked":
                counts["changes in flight"] += int(words[0])
                counts["changes lost, and said"] += int(words[1])
            if what == "confirmed":
                wanted -= 1
            if wanted == 0:
                time.sleep(pause / 50)  # within a change, not between two
                return None
        return "it ended by itself"
    finally:
        os.kill(first, signal.SIGKILL)  # and the kernel ends all others in there at once
        process.wait()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--cuts", type=int, required=True)
    parser.add_argument("--seed", type=int, required=True)
    parser.add_argument("sandbox", nargs="+", help="its command line, behind --")
    options = parser.parse_args()
    counts, expected, begin = collections.Counter(), "none", time.monotonic()
    folder = tempfile.mkdtemp(prefix="soak_cuts_")
    state, wrong, said, last = f"{folder}/state", None, begin, -1
    for number in range(options.cuts + 1):  # the last start checks what the last cut left
        rng = random.Random(f"{options.seed}/{number}")
        if os.path.exists(state):
            shutil.rmtree(f"{folder}/before", ignore_errors=True)
            shutil.copytree(state, f"{folder}/before")
        up = counts["up"]
        wrong = power(rng, options.sandbox, state, expected, last, counts)
        if wrong:
            break
        damage = rng.choices(list(DAMAGES), DAMAGES.values())[0]
        if counts["up"] == up:  # cut while it started: what it had to say may have been said
            expected = expected.rstrip("?") + "?"
            continue
        expected, last = tear(rng, f"{state}/nvram", damage), number
        counts[f"torn: {damage}"] += 1
        if time.monotonic() - said > 10:
            said = time.monotonic()
            print(f"soak: cut {number}, {counts['confirmed']} changes, {said - begin:.0f} s", file=sys.stderr)
    counts["cuts"], counts["starts that were checked"] = number, counts["up"]
    for name in sorted(counts):
        print(f"{name:28}{counts[name]:>10}")
    print(f"{'seconds':28}{time.monotonic() - begin:>10.0f}")
    if wrong:
        sys.exit(f"soak: seed {options.seed}, cut {number}: {wrong}\nsoak: the flash as it was is in "
                 f"{folder}/before; again: script/soak --cuts {number} --seed {options.seed}")
    shutil.rmtree(folder)


if __name__ == "__main__":
    main()
