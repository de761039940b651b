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
LOG = "/var/persist/dbmgr.log"  # outlives a cut, so that what a start has said that was cut is known to the next one
LOSS = ("cut off, which are dropped", "changes are lost", "is used, with", "the area's settings are lost")
# What the first start keeps by itself, and before it. One without a boot type, which is in area 2, is a first one.
DEVICE, BEFORE, FIRST = "InternetGatewayDevice.DeviceInfo", {"ProvisioningCode": ""}, {"ProvisioningCode": "BURNT"}
BASES = 40  # states of the journal's beginning that are kept


def say(*words):
    os.write(1, " ".join(words).encode() + b"\n")


def replay(store, entries):
    """The model as the journal has it."""
    model = Model(store)
    base = max(number for number, entry in enumerate(entries) if entry[0] == "base")
    _, model.objects, rows, model.highest, *_ = json.loads(json.dumps(entries[base]))
    model.rows = {array: set(numbers) for array, numbers in rows.items()}
    for what, *words in entries[base + 1:]:
        getattr(model, what)(*words)
    return model


def differences(store, entries, may_lose):
    """What is not as it was, and the model of what is. So many changes may be lost, and they are the last ones that
    were kept: one that was kept before them may have been confirmed behind."""
    wrong, lost, behind = [], 0, None
    for length in range(len(entries), 0, -1):
        model = replay(store, entries[:length])
        state = json.dumps([model.objects, {array: sorted(rows) for array, rows in model.rows.items()}], sort_keys=True)
        lost += behind not in (None, state)
        behind = state
        if lost > may_lose + CLIENTS - 1:
            break
        in_flight = len(model.unsure)
        kept = model.settle(store)
        kept = [words for what, *words in entries[length:] if what == "done" and words[0] in kept]
        found = model.differences(store)
        if not found and lost - len(kept) <= may_lose:
            say("checked", str(in_flight), str(lost - len(kept)))
            return [], model
        wrong = wrong or found
    return [f"it is no moment of the last {lost} changes, of which {may_lose} may be lost", *wrong], None


def said_of(damage, since):
    """What the log says of the flash, and what is wrong with that."""
    said = [line for line in gateway.text_of(LOG)[since:].splitlines() if " 4 nvram: " in line]
    text = "".join(said)
    loss = any(words in text for words in LOSS)
    wrong = ((said and damage == "none") or (not loss and damage in ("area1", "all", "area2"))
             or ("area1" in text and damage == "area2") or ("settings are lost" in text and damage not in ("all", "area2")))
    return text, f"after damage to {damage} the log says {said}" if wrong else None


def begin(damage, may_lose, cut):
    """`cut`: the last one that tore something, or was to; what it damaged, and how many changes that may cost. A start
    that was cut may have seen to that before."""
    store = gateway.snapshot()
    model, entries = Model(store), []
    if os.path.exists(JOURNAL):
        with open(JOURNAL, encoding="utf-8") as file:
            entries = [json.loads(line) for line in file if line.endswith("\n")]
        seen_to, since = [entry[4:] for entry in entries if entry[0] == "base"][-1]
        if seen_to == cut:
            damage, may_lose = "none", 0
        said, wrong = said_of(damage, since)
        if wrong:
            return say("wrong", wrong)
        if damage == "area2" and FIRST.items() <= model.objects[DEVICE].items():
            entries += [["begin", ["set", DEVICE, FIRST]], ["done", ["set", DEVICE, FIRST], "ok"]]
        all_lost = "settings are lost" in said and damage == "all"
        found, seen = differences(store, entries[:1] if all_lost else entries, may_lose)
        if found:
            return say("wrong", "; ".join(found[:5]))
        if not may_lose:  # else a number that was used may be lost, too
            model.highest = seen.highest
        if "area1" in said:
            del entries[1:]  # the file is written anew
    bases = [number for number, entry in enumerate(entries) if entry[0] == "base"]
    del entries[1:bases[-BASES] if len(bases) > BASES else 1]  # what was at first stays: it is when all is lost
    rows = {array: sorted(numbers) for array, numbers in model.rows.items()}
    if not os.path.exists(JOURNAL):
        before = {**model.objects, DEVICE: {**model.objects[DEVICE], **BEFORE}}
        entries = [["base", before, rows, {}, "", 0]]
    with open(f"{JOURNAL}.new", "w", encoding="utf-8") as file:
        base = ["base", model.objects, rows, model.highest, cut, len(gateway.text_of(LOG))]
        file.writelines(json.dumps(entry) + "\n" for entry in [*entries, base])
    os.replace(f"{JOURNAL}.new", JOURNAL)
    model.journal = os.open(JOURNAL, os.O_WRONLY | os.O_APPEND)
    return model


def told(task):
    """What goes wrong is said at once, whatever others are at."""
    try:
        task()
    except Exception as error:  # pylint: disable=broad-except # a damaged answer, a file that is not there
        say("wrong", f"{type(error).__name__}: {error}".replace("\n", " "))


def change(model, number, seed):
    client, rng = gateway.Client(), random.Random(f"{seed}/{number}")
    own = own_of(model, number, CLIENTS)
    for _ in itertools.count():
        if mix.one(client, rng, model, own, False) == "confirmed":
            say("confirmed")


def main():
    damage, may_lose, cut, seed = sys.argv[1:]
    os.symlink(LOG, "/var/log/devkit/dbmgr.log")
    os.symlink(f"{os.environ['DEVKIT_BUILD']}/bin/stub", "/usr/sbin/dropbearkey")  # a key takes seconds
    gateway.daemon("start", *gateway.NAMES)
    model = begin(damage, int(may_lose), cut)
    if model:
        say("up")
        together([lambda n=n: told(lambda: change(model, n, seed)) for n in range(CLIENTS)])


if __name__ == "__main__":
    told(main)
    threading.Event().wait(gateway.PATIENCE)  # for the cut
