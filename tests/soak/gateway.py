"""The gateway around this process: clients, processes and what they use. Runs inside the sandbox."""
import contextlib
import json
import os
import re
import select
import signal
import subprocess
import threading
import time

PATIENCE = int(os.environ.get("GATEWAY_TIMEOUT", "60"))  # seconds for what is sure to come
NAMES = ("dbmgr", "modem", "vermgt", "sysmgr")
# What an answer says of a request: it may be done; it was not even begun.
LOST = re.compile(r"error: .*died before it answered")
UNSENT = re.compile(r"error: .*(is not running|takes no more messages)")
CALLS, COMMANDS, INFORMS = (f"/var/log/devkit/{name}" for name in ("calls", "commands", "informs"))


class Wrong(Exception):
    """What was seen, and what it should have been."""


def word(text):
    """One word of a request line."""
    return '"' + text.replace("\\", "\\\\").replace('"', '\\"') + '"'


class Hangs(Wrong):
    """Who waits for a process that dies is told at once, and one that runs answers."""


class Client:
    """A cfgcmd that stays, one request after the other. Behind each goes a line that it refuses, so that the
    end of an answer of several lines is seen."""

    def __init__(self):
        self.asked = 0
        self.process = subprocess.Popen(
            ["cfgcmd", "--timeout", str(PATIENCE), "batch"],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )

    def ask(self, line):
        self.asked += 1
        end = f'cfgcmd: line {2 * self.asked}: no request: "mark {self.asked}"\n'.encode()
        limit, answer, out = time.monotonic() + 2 * PATIENCE, b"", self.process.stdout.fileno()
        self.process.stdin.write(f"{line}\nmark {self.asked}\n".encode())
        self.process.stdin.flush()
        while not answer.endswith(end):
            if not select.select([out], [], [], max(0, limit - time.monotonic()))[0]:
                raise Hangs(f"no answer in {2 * PATIENCE} s to: {line}")
            piece = os.read(out, 1 << 16)
            if not piece:
                raise Hangs(f"cfgcmd ended at: {line}")
            answer += piece
        text = re.sub(r"^cfgcmd: line \d+: ", "error: ", answer[: -len(end) - 1].decode())
        if re.match("error: .*gave no answer in", text):
            raise Hangs(f"{line}: {text}")
        return text

    def done(self, line):
        """The answer to a request that has to be done."""
        answer = self.ask(line)
        if answer.startswith("error: "):
            raise Wrong(f"{line}: {answer}")
        return "" if answer == "ok" else answer


def run(*words):
    try:
        done = subprocess.run(words, capture_output=True, text=True, check=False, timeout=2 * PATIENCE)
    except subprocess.TimeoutExpired as error:
        raise Hangs(f"{' '.join(words)}: it does not end") from error
    if done.returncode != 0:
        raise Wrong(f"{' '.join(words)}: status {done.returncode}: {done.stderr}")
    return done.stdout


here = threading.local()


@contextlib.contextmanager
def patience_of(seconds):
    """So long this thread waits for what a fault may have ended."""
    here.patience = seconds
    try:
        yield
    finally:
        del here.patience


def until(true, what):
    """Waits for what is sure to come; its value."""
    patience = getattr(here, "patience", PATIENCE)
    limit = time.monotonic() + patience
    while not (value := true()):
        if time.monotonic() > limit:
            raise Wrong(f"in {patience} s this was never seen: {what}")
        time.sleep(0.02)
    return value


def text_of(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()


def pid(name):
    return int(text_of(f"/var/run/devkit/{name}"))


def kill(*names):
    """kill -9 of all of them at once; returns when they are gone."""
    pids = [pid(name) for name in names]
    for each in pids:
        os.kill(each, signal.SIGKILL)
    for each in pids:
        until(lambda each=each: not os.path.exists(f"/proc/{each}"), f"the end of process {each}")


def daemon(what, *names):
    """gateway-daemon start or restart, in the order of NAMES."""
    for name in sorted(names, key=NAMES.index):
        run("gateway-daemon", what, name)


def used(name):
    """What a process uses now: KiB of its own, descriptors, threads."""
    folder = f"/proc/{pid(name)}"
    status = dict(line.split(":", 1) for line in text_of(f"{folder}/status").splitlines())
    own = int(status["RssAnon"].split()[0])
    return own, len(os.listdir(f"{folder}/fd")), int(status["Threads"])


def blocks():
    """Live blocks of the daemon's counted heap by tag."""
    heap = json.loads(run("cfgcmd", "--timeout", str(PATIENCE), "--json", "mem"))
    return {row["tag"]: row["blocks"] for row in heap["tags"]}


def snapshot():
    """The store as it is, without asking a module: values by path, and rows by the array's path."""
    values, rows = {}, {}
    for node in json.loads(run("cfgcmd", "--json", "tree")):
        path = node["path"]
        above, _, last = path.rpartition(".")
        if "value" in node:
            values[path] = node["value"]
        elif node["type"] == "array":
            rows[path] = set()
        elif above in rows and last.isdigit():
            rows[above].add(int(last))
    return values, rows
