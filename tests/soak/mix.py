"""Requests of all seven commands from one of the parallel clients, each answer judged by the model."""
from gateway import LOST, UNSENT, Wrong
from model import ROOT, value

SERVED = (f"{ROOT}.DeviceInfo.UpTime", f"{ROOT}.Services.ServiceTelnet.Port", f"{ROOT}.ManagementServer.URL")
# What has to be refused, and why.
REFUSED = (
    (f"get {ROOT}.Nothing", "no parameter"),
    (f"get {ROOT}.DeviceInfo.VendorConfigFile.4294967295", "no parameter"),
    (f"set {ROOT}.DeviceInfo.UpTime 5", "is read-only"),
    (f"set {ROOT}.Services.ServiceSSH.Port 22;id", "goes into a shell line"),
    (f"set {ROOT}.DeviceInfo.X_CT-COM_UPNP.Enable maybe", "it takes 0, 1, true or false"),
    (f"add {ROOT}.DeviceInfo", "add needs an array"),
    (f"del {ROOT}.DeviceInfo.UpTime", "del needs an instance"),
    (f"list {ROOT}.Services", "list needs an array"),
    (f"set {ROOT}.DeviceInfo.X_CT-COM_Syslog.Level 8", "from 0 to 7"),
    (f"set {ROOT}.ManagementServer.PeriodicInformTime soon", "a time such as"),
    (f"set {ROOT}.DeviceInfo.X_CT-COM_MiddlewareMgt.MiddlewareURL {'x' * 300}", "carries 255"),
)


COMMANDS, WEIGHTS = ("get", "whole", "set", "attr", "refresh", "list", "add", "del", "refused"), (6, 3, 8, 2, 1, 1, 2, 2, 1)


def pick(rng, model, own):
    """The next request: its line, and the operation that it is or None. It draws as much, and from the same,
    whatever rows there are, so that a step that is run alone asks the same."""
    place, command, share = rng.choice(own(model.places)), rng.choices(COMMANDS, WEIGHTS)[0], rng.random()
    kinds, refused = model.kinds(place), rng.choice(REFUSED)
    leaves = rng.sample(sorted(kinds), rng.randint(1, min(3, len(kinds))))
    values = {leaf: value(rng, kinds[leaf]) for leaf in leaves}
    arrays = own(model.rows)
    array = rng.choice(arrays) if arrays else place
    changes_rows = command in ("list", "add", "del") and arrays
    if command == "refused" or (array if changes_rows else place) in model.unsure:
        return refused, None
    if changes_rows:
        rows = sorted(model.rows[array])
        if command == "list":
            return f"list {array}", None
        if len(rows) > 4 or (command == "del" and len(rows) > 1):
            return None, ["del", f"{array}.{rows[int(share * len(rows))]}"]
        return None, ["add", array]
    path = place
    if place in model.rows:
        rows = sorted(model.rows[place])
        if not rows:
            return None, ["add", place]
        path = f"{place}.{rows[int(share * len(rows))]}"
    if command == "set":
        return None, ["set", path, values]
    if command == "whole":
        return f"get {path}", None
    return f"{command if command in ('attr', 'refresh') else 'get'} {path}.{leaves[0]}", None


def expected(model, line):
    """Whether an answer to a read is right."""
    command, path = line.split(" ")
    above, _, leaf = path.rpartition(".")
    if command == "list":
        wanted = ",".join(str(row) for row in sorted(model.rows[path]))
        return lambda answer: answer == wanted
    if command == "refresh":
        return lambda answer: answer == "ok"
    if command == "attr":
        return lambda answer: answer.startswith(f'{path}={model.objects[above][leaf]} type="')
    if path in model.objects:
        lines = {f"{path}.{leaf}={text}" for leaf, text in model.objects[path].items()}
        return lambda answer: lines <= set(answer.split("\n"))
    return lambda answer: answer == model.objects[above][leaf]


def one(client, rng, model, own, faulty):
    """One request. What it came to: "confirmed" (a change), "answered", "lost", "unsent"; the last two in a fault alone."""
    line, op = pick(rng, model, own)
    if isinstance(line, tuple):
        line, why = line
        answer = client.ask(line)
        if faulty and (UNSENT.match(answer) or LOST.match(answer)):
            return "lost" if LOST.match(answer) else "unsent"
        if not (answer.startswith("error: ") and why in answer):
            raise Wrong(f"{line}: {answer}: not refused because it {why}")
        return "answered"
    if op is not None:
        model.begin(op)
        line = model.line(op)
    answer = client.ask(line)
    if UNSENT.match(answer) or LOST.match(answer):
        if not faulty:
            raise Wrong(f"{line}: {answer}")
        if op is not None:
            model.died(op, answer, UNSENT.match(answer) or "parameters are as before" in answer)
        return "lost" if LOST.match(answer) else "unsent"
    if op is not None:
        model.done(op, answer)
        return "confirmed"
    if not expected(model, line)(answer):
        raise Wrong(f"{line}: {answer!r}")
    return "answered"


def fence(client):
    """Everything that modules were asked before has been done: each takes turns among those who ask."""
    for path in SERVED:
        for _ in range(16):
            client.done(f"get {path}")
