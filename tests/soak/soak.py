#!/usr/bin/env python3
"""The long run: drives the gateway in which it runs with cfgcmd alone, and checks it against a plain model."""
import argparse
import collections
import concurrent.futures
import itertools
import os
import random
import sys
import threading
import time
import zlib

import gateway
import mix
import model as plain
import specials
from gateway import NAMES, Wrong

CLIENTS = 4
LIMIT_KIB = 512  # what a process may have more of its own memory at the end of a calm time; of all else nothing
LATE = 10  # minutes that a slow machine has more, to come through the first calm times
FIRST_STEPS = 16  # then these times are over
CONNECTING = ("get InternetGatewayDevice.DeviceInfo.Manufacturer", "get InternetGatewayDevice.ManagementServer.URL",
              "get InternetGatewayDevice.Services.ServiceTelnet.Port", "send sysmgr:button_proc 0x100052 --wait --hex 0100")
FAULTS = (("sysmgr",), ("dbmgr",), ("dbmgr", "sysmgr"), ("modem",), ("vermgt",), NAMES)


def calm(step):
    """Faults and calm take turns, each time twice as long: in a calm time nothing is killed, and what grows is seen."""
    return step.bit_length() % 2 == 0


def early(seed):
    """The specials of the first calm steps: each kind once, in a turn that the seed gives."""
    kinds = list(specials.SPECIALS)
    return dict(zip(filter(calm, itertools.count()), random.Random(f"{seed}/early").sample(kinds, len(kinds))))


def own_of(model, number, clients):
    """The paths of a client: they are its own, so that parallel clients cannot be in each other's way."""
    return lambda paths: sorted(p for p in list(paths) if zlib.crc32(model.home(p).encode()) % clients == number)


class Grown(Wrong):
    pass


class Run:
    def __init__(self, options):
        self.options = options
        self.counts = collections.Counter()
        self.moved = threading.Condition()
        self.grown_since, self.warm, self.growth = 0, {}, {}  # of each process: what it used, and what more now
        self.since = options.first  # the step since which nothing was compared with the store
        self.clients = [gateway.Client() for _ in range(CLIENTS + 1)]
        store = gateway.snapshot()
        self.model = plain.Model(store)
        self.rest = plain.Rest(store, self.model)
        self.threads = gateway.used("sysmgr")[2]

    def count(self, what):
        with self.moved:
            self.counts[what] += 1
            self.moved.notify_all()

    def rng(self, step, who):
        return random.Random(f"{self.options.seed}/{step}/{who}")

    def ask_many(self, step, number, faulty):
        rng = self.rng(step, number)
        for _ in range(rng.randint(10, 40)):
            came_to = mix.one(self.clients[number], rng, self.model, own_of(self.model, number, CLIENTS), faulty)
            self.count("requests")
            self.count(came_to)
            if came_to == "unsent":
                time.sleep(0.02)  # as a client that tries again

    def fault(self, names, rng):
        """They die or are restarted at a moment in the midst of the requests."""
        dies = rng.random() < 0.75
        with self.moved:
            wanted = self.counts["requests"] + rng.randint(1, 40)
            self.moved.wait_for(lambda: self.counts["requests"] >= wanted, 5)
        time.sleep(rng.random() / 200)  # within a request, not between two
        if dies:
            gateway.kill(*names)
        gateway.daemon("start" if dies else "restart", *names)
        self.count("faults" if dies else "restarts")

    def any_special(self, rng):
        if rng.random() < 0.6:
            return rng.choices(specials.SPECIALS, [special.often for special in specials.SPECIALS])[0]
        return None

    def act(self, special, fault, rng):
        """What runs beside the clients. A fault of those whom it needs may cut it short."""
        if not special.meets(fault):
            special.run(self.clients[CLIENTS], rng)
            self.count(special.name)
        elif special.run is not specials.unplugged:  # a fault of its own
            done = specials.disturbed(special, self.clients[CLIENTS], rng)
            self.count("done in a fault" if done else "cut short in a fault")

    def step(self, step):
        rng, chance = self.rng(step, "step"), self.rng(step, "fault")
        faulty = not calm(step) and rng.random() < 0.75
        fault = chance.choice(FAULTS) if faulty else ()
        others = [lambda: self.fault(fault, chance)] if faulty else []
        special = early(self.options.seed).get(step) or self.any_special(rng)
        if special:
            others.append(lambda: self.act(special, fault, rng))
        before = self.looks() if faulty else {}
        together([lambda n=n: self.ask_many(step, n, faulty) for n in range(CLIENTS)] + others)
        if faulty:
            mix.fence(self.clients[0])
            specials.tidy(self.clients[CLIENTS], self.threads)
            self.model.settle(gateway.snapshot())
        if faulty or step % 5 == 4:
            self.audit(step)
        if faulty:
            self.left(step, before)

    def audit(self, step):
        store = gateway.snapshot()
        lost = self.model.differences(store) + self.rest.differences(store)
        if lost:
            self.counts["lost writes"] += len(lost)
            raise Wrong("; ".join(lost[:5]))
        self.since = step + 1

    def measure(self, step):
        """At the end of a step nothing is asked: what is used now is kept, or compared with what was."""
        era = 1 << step.bit_length() >> 1
        if not calm(step) or era < 8 or step < era + era // 4:
            self.warm = {}
            return
        if not self.warm:
            self.grown_since = step
            self.connect()
        for name in NAMES:
            process = name, gateway.pid(name)
            if process in self.warm:
                self.grown(name, self.warm[process])
            else:
                self.warm[process] = look(name)

    def connect(self):
        """Connections stay, each client's and those to modules; that the keys' one refuses to answer says that it is there."""
        for client in self.clients:
            for line in CONNECTING:
                client.ask(line)

    def looks(self):
        """What each process uses."""
        self.connect()
        return {(name, gateway.pid(name)): look(name) for name in NAMES}

    def left(self, step, before):
        """A fault leaves nothing in those that it has not ended."""
        self.connect()
        for name in NAMES:
            if (name, gateway.pid(name)) in before:
                self.grown_since = step
                self.compare(name, before[name, gateway.pid(name)], "before the fault")
                self.count("who outlived them")

    def owed(self):
        """What has to be seen in a run from the first step on, before it may say that all is well."""
        kinds = [special.name for special in specials.SPECIALS if not self.counts[special.name]]
        return kinds + [f"growth of {name}" for name in NAMES if name not in self.growth]

    def goes_on(self, step, minutes):
        """A run whose first calm times take longer than it may last goes on until they have shown all that is owed."""
        if step - self.options.first >= self.options.steps or minutes >= self.options.minutes + LATE:
            return False
        return minutes < self.options.minutes or (self.options.first == 0 and bool(self.owed()))

    def end(self, step):
        self.audit(step)
        if self.options.first == 0 and self.options.steps >= FIRST_STEPS and self.owed():
            self.since = 0
            raise Wrong(f"in {step} steps these were never seen: {', '.join(self.owed())}")

    def compare(self, name, before, when):
        """Timers work at any time, so it looks until only memory is more than it was, if ever. Returns how much, in KiB."""
        limit = time.monotonic() + gateway.PATIENCE
        while True:
            used, heap = look(name)
            kib, *others = [now - then for now, then in zip(used, before[0])]
            leaked = {tag: n - before[1].get(tag, 0) for tag, n in heap.items() if n > before[1].get(tag, 0)}
            if max(others) <= 0 and not leaked:
                return kib
            if time.monotonic() > limit:
                self.counts["leaked blocks"] = sum(leaked.values())
                self.growth[name] = [kib, *others]
                raise Grown(f"{name} has {others[0]} descriptors and {others[1]} threads more than {when}, "
                            f"and of blocks of its counted heap {leaked}")
            time.sleep(0.05)

    def grown(self, name, warm):
        kib = self.compare(name, warm, "when it was warm")
        self.growth[name] = [max(kib, self.growth.get(name, [0])[0]), 0, 0]
        if kib > LIMIT_KIB and not os.environ.get("GATEWAY_SANITIZE"):  # sanitizers keep what was freed
            raise Grown(f"{name} has {kib} KiB more than when it was warm")


def look(name):
    return gateway.used(name), gateway.blocks() if name == "sysmgr" else {}


def together(tasks):
    """Runs them side by side; raises what one of them raised."""
    with concurrent.futures.ThreadPoolExecutor(len(tasks)) as pool:
        for running in [pool.submit(task) for task in tasks]:
            running.result()


def table(run, steps, seconds):
    counts = run.counts
    rows = [("steps", steps), ("seconds", round(seconds)), ("requests", counts["requests"]),
            ("answers", counts["answered"] + counts["confirmed"]), ("not begun, in a fault", counts["unsent"]),
            ("died with a fault", counts["lost"]), ("confirmed changes", counts["confirmed"])]
    rows += [(name, counts[name]) for name in sorted(special.name for special in specials.SPECIALS)]
    rows += [(name, counts[name]) for name in ("done in a fault", "cut short in a fault")]
    rows += [("faults injected", counts["faults"]), ("restarts", counts["restarts"]),
             ("who outlived them", counts["who outlived them"]), ("lost writes", counts["lost writes"]),
             ("wrong answers", counts["wrong answers"]), ("leaked blocks", counts["leaked blocks"])]
    lines = [f"{name:24}{number:>10}" for name, number in rows]
    lines += [f"growth of {name:14}{kib:>10} KiB, {fds} descriptors, {threads} threads"
              for name, (kib, fds, threads) in run.growth.items()]
    lines += [f"growth of {name:14}{'-':>10} (no calm time was long enough)" for name in NAMES if name not in run.growth]
    return "\n".join(lines)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--minutes", type=float, default=1e9)
    parser.add_argument("--steps", type=int, default=1 << 60)
    parser.add_argument("--seed", type=int, required=True)
    parser.add_argument("--from", type=int, default=0, dest="first")
    options = parser.parse_args()
    if options.steps < 1:
        parser.error("give at least one step")
    gateway.until(lambda: "\nkillall -q smbd\n" in gateway.text_of(gateway.COMMANDS), "the last of the start")
    run, begin, step, wrong = Run(options), time.monotonic(), options.first, None
    said = begin
    open(gateway.INFORMS, "a", encoding="utf-8").close()
    try:
        while run.goes_on(step, (time.monotonic() - begin) / 60):
            run.step(step)
            run.measure(step)
            step += 1
            if time.monotonic() - said > 10:
                said = time.monotonic()
                print(f"soak: step {step}, {run.counts['requests']} requests, {run.counts['faults']} faults, "
                      f"{said - begin:.0f} s", file=sys.stderr)
        run.end(step)
    except Exception as error:  # pylint: disable=broad-except # a damaged answer, the files of a process that is gone
        wrong = error
        run.counts["wrong answers"] += not (run.counts["lost writes"] or isinstance(error, Grown))
    print(table(run, step - options.first, time.monotonic() - begin))
    if wrong:
        for name in NAMES:
            last = gateway.text_of(f"/var/log/devkit/{name}.log").splitlines()[-15:]
            print(f"--- the end of {name}.log", *last, sep="\n", file=sys.stderr)
        first = run.grown_since if isinstance(wrong, Grown) else run.since
        sys.exit(f"soak: seed {options.seed}, step {step}: {type(wrong).__name__}: {wrong}\n"
                 f"soak: again: script/soak --seed {options.seed} --from {first} --steps {step - first + 1}")


if __name__ == "__main__":
    main()
