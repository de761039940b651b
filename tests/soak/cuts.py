#!/usr/bin/env python3
"""Power cuts: kills a gateway with all that is in its sandbox at a random moment of its writing, tears what was
being written on the flash, starts it again and has it checked (writer.py). Only the flash outlives a cut."""
import argparse
import collections
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.realpath(__file__))
# What becomes of the files at a cut, and how often: nothing; a commit that was begun is torn; the last commit,
# when none was begun; it and the one before.
DAMAGES = {"none": 8, "new": 4, "area1": 7, "all": 1}
TEARS = ("cut", "zeros", "junk", "empty")
PAGE = 4096


def torn(rng, data):
    """The bytes of a file as a write that was torn leaves them: its last pages are missing or are others."""
    start = rng.randrange(max(0, len(data) - 2 * PAGE), len(data) + 1) // 512 * 512
    tear = rng.choice(TEARS)
    if tear in ("cut", "empty"):
        return data[: start if tear == "cut" else 0]
    rest = bytes(len(data) - start) if tear == "zeros" else rng.randbytes(len(data) - start)
    return data[:start] + rest


def tear(rng, flash, damage):
    """Returns what the next start has to say: "none", "area1" or "all"."""
    def rewrite(name, source):
        with open(f"{flash}/{source}", "rb") as file:
            data = torn(rng, file.read())
        with open(f"{flash}/{name}", "wb") as file:
            file.write(data)

    if damage == "none" or not os.path.exists(f"{flash}/area1"):
        return "none"
    begun = os.path.exists(f"{flash}/area1.new")
    if damage == "new" or (damage == "area1" and begun):  # what was written last is what is torn
        rewrite("area1.new", "area1.new" if begun else "area1")
        return "none"
    before = os.path.exists(f"{flash}/area1.1")
    rewrite("area1", "area1")
    if damage == "all" and before:
        rewrite("area1.1", "area1.1")
    return "area1" if damage == "area1" and before else "all"


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


def power(rng, sandbox, state, expected, counts):
    """From one start to its cut. What was wrong, or None."""
    process = subprocess.Popen(
        [*sandbox, "--state", state, "--bare", "--", "python3", f"{HERE}/writer.py", expected, str(rng.random())],
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
    state, wrong, said = f"{folder}/state", None, begin
    for number in range(options.cuts + 1):  # the last start checks what the last cut left
        rng = random.Random(f"{options.seed}/{number}")
        if os.path.exists(state):
            shutil.rmtree(f"{folder}/before", ignore_errors=True)
            shutil.copytree(state, f"{folder}/before")
        up = counts["up"]
        wrong = power(rng, options.sandbox, state, expected, counts)
        if wrong:
            break
        damage = rng.choices(list(DAMAGES), DAMAGES.values())[0]
        if counts["up"] == up:  # cut while it started: what it had to say may have been said
            expected = expected.rstrip("?") + "?"
            continue
        expected = tear(rng, f"{state}/nvram", damage)
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
