#!/usr/bin/env python3
"""Inside the sandbox, between two power cuts: starts the gateway, sees that what was confirmed before the last cut
is there or its loss said, then changes parameters until the power goes. A line of standard output is an event:
"up", "confirmed", or "wrong" with what."""
import itertools
import json
import os
import random
import sys
import threading

import gateway
import mix
from model import Model
from soak import own_of, together

CLIENTS = 3
JOURNAL = "/var/persist/journal"  # no part of the gateway
LOSS = {"none": "", "area1": "the commit before is used", "all": "the area's settings are lost"}


def say(*words):
    os.write(1, " ".join(words).encode() + b"\n")


def replay(store, entries, without=()):
    """The model as the journal has it, without some of its lines."""
    model = Model(store)
    model.objects, rows, model.highest = json.loads(json.dumps(entries[0]))
    model.rows = {array: set(numbers) for array, numbers in rows.items()}
    for number, (what, *words) in enumerate(entries[1:], 1):
        if number not in without:
            getattr(model, what)(*words)
    return model


def omissible(entries, home):
    """Lines of changes that the last commit may be: the last one that was confirmed of its object."""
    found, seen = [], set()
    for number in range(len(entries) - 1, 0, -1):
        what, op, *_ = entries[number]
        if what == "done" and home(op[1]) not in seen:
            begun = max(i for i in range(1, number) if entries[i] == ["begin", op])
            found.append((begun, number))
            seen.add(home(op[1]))
    return found[:CLIENTS]


def differences(store, damage):
    """What is not as it was, and the model of what is. A damaged last commit may cost one change."""
    with open(JOURNAL, encoding="utf-8") as file:
        entries = [json.loads(line) for line in file if line.endswith("\n")]
    whole = replay(store, entries)
    wrong = []
    for without in [()] + (omissible(entries, whole.home) if damage == "area1" else []):
        model = replay(store, entries, without)
        in_flight = len(model.unsure)
        model.settle(store)
        found = model.differences(store)
        if not found:
            say("checked", str(in_flight), str(len(without) // 2))
            return [], model
        wrong = wrong or found
    return wrong, whole


def begin(damage):
    store = gateway.snapshot()
    model = Model(store)
    if os.path.exists(JOURNAL):
        log = gateway.text_of("/var/log/devkit/dbmgr.log")
        said = [line for line in log.splitlines() if " 4 nvram: " in line]
        maybe, damage = damage.endswith("?"), damage.rstrip("?")
        if (LOSS[damage] not in "".join(said) and not maybe) or (said and damage == "none"):
            return say("wrong", f"after damage to {damage} the log says {said}")
        if damage != "all":
            found, seen = differences(store, damage)
            if found:
                return say("wrong", "; ".join(found[:5]))
            model.highest = seen.highest
    with open(JOURNAL, "w", encoding="utf-8") as file:
        rows = {array: sorted(numbers) for array, numbers in model.rows.items()}
        file.write(json.dumps([model.objects, rows, model.highest]) + "\n")
    model.journal = os.open(JOURNAL, os.O_WRONLY | os.O_APPEND)
    return model


def change(model, number, seed):
    client, rng = gateway.Client(), random.Random(f"{seed}/{number}")
    own = own_of(model, number, CLIENTS)
    for _ in itertools.count():
        if mix.one(client, rng, model, own, False) == "confirmed":
            say("confirmed")


def main():
    damage, seed = sys.argv[1:]
    os.symlink(f"{os.environ['DEVKIT_BUILD']}/bin/stub", "/usr/sbin/dropbearkey")  # a key takes seconds
    gateway.daemon("start", "dbmgr", "sysmgr")
    model = begin(damage)
    if model:
        say("up")
        together([lambda n=n: change(model, n, seed) for n in range(CLIENTS)])


if __name__ == "__main__":
    try:
        main()
    except (gateway.Wrong, OSError) as error:
        say("wrong", str(error).replace("\n", " "))
    threading.Event().wait(gateway.PATIENCE)  # for the cut
