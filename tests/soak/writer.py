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
LOSS = ("cut off, which are dropped", "changes are lost", "is used, with", "the area's settings are lost")
BASES = 40  # states of the journal's beginning that are kept


def say(*words):
    os.write(1, " ".join(words).encode() + b"\n")


def replay(store, entries):
    """The model as the journal has it."""
    model = Model(store)
    base = max(number for number, entry in enumerate(entries) if entry[0] == "base")
    _, model.objects, rows, model.highest, _ = json.loads(json.dumps(entries[base]))
    model.rows = {array: set(numbers) for array, numbers in rows.items()}
    for what, *words in entries[base + 1:]:
        getattr(model, what)(*words)
    return model


def differences(store, entries, may_lose):
    """What is not as it was, and the model of what is. Where changes may be lost, they are the last ones."""
    wrong = []
    for length in range(len(entries), 0, -1):
        model = replay(store, entries[:length])
        in_flight = len(model.unsure)
        model.settle(store)
        found = model.differences(store)
        if not found:
            lost = sum(entry[0] == "done" for entry in entries[length:])
            say("checked", str(in_flight), str(lost))
            return [], model
        wrong = wrong or found
        if not may_lose:
            break
    return wrong, None


def said_of(damage):
    """What the log says of the flash, and what is wrong with that."""
    said = [line for line in gateway.text_of("/var/log/devkit/dbmgr.log").splitlines() if " 4 nvram: " in line]
    maybe, damage = damage.endswith("?"), damage.rstrip("?")  # a start that was cut may have said it
    text = "".join(said)
    loss = any(words in text for words in LOSS)
    wrong = ((said and damage == "none") or (not loss and damage in ("area1", "all") and not maybe)
             or ("settings are lost" in text and damage != "all"))
    return text, f"after damage to {damage} the log says {said}" if wrong else None


def begin(damage, cut):
    """`cut`: the last one that tore something, or was to. A start that was cut may have seen to that before."""
    store = gateway.snapshot()
    model, entries = Model(store), []
    if os.path.exists(JOURNAL):
        with open(JOURNAL, encoding="utf-8") as file:
            entries = [json.loads(line) for line in file if line.endswith("\n")]
        if [entry[4] for entry in entries if entry[0] == "base"][-1] == cut:
            damage = "none"
        said, wrong = said_of(damage)
        if wrong:
            return say("wrong", wrong)
        all_lost = "settings are lost" in said or damage == "all?"  # a start that was cut may have said it
        if not all_lost:
            may_lose = damage.rstrip("?") in ("area1", "all")
            found, seen = differences(store, entries, may_lose)
            if found:
                return say("wrong", "; ".join(found[:5]))
            if not may_lose:  # else a number that was used may be lost, too
                model.highest = seen.highest
        if said or all_lost:
            entries = []  # the file is written anew
    bases = [number for number, entry in enumerate(entries) if entry[0] == "base"]
    entries = entries[bases[-BASES] if len(bases) > BASES else 0:]
    rows = {array: sorted(numbers) for array, numbers in model.rows.items()}
    with open(f"{JOURNAL}.new", "w", encoding="utf-8") as file:
        base = ["base", model.objects, rows, model.highest, cut]
        file.writelines(json.dumps(entry) + "\n" for entry in [*entries, base])
    os.replace(f"{JOURNAL}.new", JOURNAL)
    model.journal = os.open(JOURNAL, os.O_WRONLY | os.O_APPEND)
    return model


def change(model, number, seed):
    client, rng = gateway.Client(), random.Random(f"{seed}/{number}")
    own = own_of(model, number, CLIENTS)
    for _ in itertools.count():
        if mix.one(client, rng, model, own, False) == "confirmed":
            say("confirmed")


def main():
    damage, cut, seed = sys.argv[1:]
    os.symlink(f"{os.environ['DEVKIT_BUILD']}/bin/stub", "/usr/sbin/dropbearkey")  # a key takes seconds
    gateway.daemon("start", "dbmgr", "sysmgr")
    model = begin(damage, cut)
    if model:
        say("up")
        together([lambda n=n: change(model, n, seed) for n in range(CLIENTS)])


if __name__ == "__main__":
    try:
        main()
    except (gateway.Wrong, OSError) as error:
        say("wrong", str(error).replace("\n", " "))
    threading.Event().wait(gateway.PATIENCE)  # for the cut
