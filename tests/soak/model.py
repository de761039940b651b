"""What the store must hold, plainly: the values of what clients may set and the rows of what they may add to.

An operation is a list: ["set", OBJECT, {LEAF: VALUE}], ["add", ARRAY], ["del", ROW]. One whose answer was lost
is unsure until the store is read: then all of it is there, or nothing. Nothing else is asked of its object."""
import json
import os
import re
import xml.etree.ElementTree as ElementTree

from gateway import Wrong, word

ROOT = "InternetGatewayDevice"
FILE = "/etc/tr098_data_model.xml"
# Not only the setter changes these, or a set does more than keep them; steps of their own drive most of them.
OTHERS = re.compile(
    r"NumberOfEntries$|X_KVO-RestartWeb|X_KVO-UserChange|DigitMap|X_CT-COM_Restore|X_KVO_Download|X_KVO_ShortMsg"
    r"|ServiceAccessControl|ManualInform|MaintainComplete|WANIFNAME|X_KVO-ACTION|\.Stats\.|X_KVO_Is_Voip|ServiceSamba"
    r"|WANIPConnection|PhyInterface|\.Line\b|IADDiag"
)
# What does not stay as it is though no client sets it: what tells of the machine; states that op functions find out
# or that tell of what was done; what the steps beside the clients set, send or order, or have cut short.
MOVES = re.compile(
    r"\.DeviceInfo\.(UpTime|MemoryStatus\.(Free|Total)|ProcessStatus\.CPUUsage)$"
    r"|X_KVO-RestartWeb$|\.X_CT-COM_(Manual)?InformState$|X_KVO_IPSec\.TunnelList\.[0-9]+\.ConnectionStatus$"
    r"|\.X_CT-COM_ManualInform$|X_KVO_TR069WANSAVE$|\.(ServiceAccessControl|ServiceSamba)\.Enable$"
    r"|X_KVO_ShortMsg\.(DelIdx|MsgInbox|MsgResult|MsgSend\.Msg(Content|To)|USSD\.(Command|Menu))$"
    r"|X_KVO_Download\.(CommandKey|CompleteTime|FaultCode|FileType|Password|StartTime|URL|Username)$"
)
LETTERS = [chr(code) for code in range(33, 127)] + list(" é=ßЖ€你😀")
PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"


def is_leaf(element):
    return element.get("type") not in ("object", "array") and element.tag not in ("Template", "Instance")


def shapes(element, path, found):
    """What may be set, by path with {i} for each row's number: name, attributes, value in a new row."""
    leaves = {}
    for child in element:
        if is_leaf(child) and child.get("writable") != "0" and not OTHERS.search(f"{path}.{child.tag}"):
            leaves[child.tag] = (child.attrib, child.text or "")
    found.setdefault(path, leaves)
    for child in element:
        if not is_leaf(child):
            shapes(child, f"{path}.{'{i}' if child.tag in ('Template', 'Instance') else child.tag}", found)


def generic(path):
    return re.sub(r"\.[0-9]+(?=\.|$)", ".{i}", path)


def value(rng, leaf):
    """Any value that the leaf's attributes let in."""
    if "values" in leaf:
        return rng.choice(leaf["values"].split(","))
    kind, most = leaf.get("check") or leaf["type"], int(leaf.get("max", 1 << 32))
    plain = "".join(rng.choices(PLAIN, k=rng.randint(1, 12)))
    port = rng.randint(20000, 20999)
    kinds = {
        "boolean": lambda: rng.choice("01"),
        "int": lambda: rng.choice(["0", "1", "2", "-7"]),
        "unsignedInt": lambda: str(rng.choice([0, 1, rng.randint(0, 65535), 4294967295])),
        "dateTime": lambda: f"20{rng.randint(10, 99)}-11-25T09:30:{rng.randint(10, 59)}Z",
        "string": lambda: "".join(rng.choices(LETTERS, k=rng.randint(0, 12))).strip(),
        "port": lambda: str(port),
        "port list": lambda: f"{port},{port + 1000}",
        "path": lambda: f"/{plain}",
        "address": lambda: f"192.0.2.{rng.randint(1, 254)}",
    }
    text = kinds.get(kind, lambda: plain)()
    if kind in ("int", "unsignedInt"):
        return str(min(max(int(text), int(leaf.get("min", text))), most))
    return text.encode()[:most].decode(errors="ignore").strip()


class Model:
    def __init__(self, store):
        values, rows = store
        root = ElementTree.parse(FILE).getroot()
        self.shapes = {}
        shapes(root, root.tag, self.shapes)
        arrays = {path[:-4] for path in self.shapes if path.endswith(".{i}")}
        deep = {path.rpartition(".{i}.")[0] for path in self.shapes if ".{i}." in path}
        self.objects, self.rows, self.highest, self.unsure = {}, {}, {}, {}
        self.journal = None
        for path, text in values.items():
            above, _, leaf = path.rpartition(".")
            if self.has(path):
                self.objects.setdefault(above, {})[leaf] = text
        for path, numbers in rows.items():
            if path in arrays - deep and self.shapes[f"{path}.{{i}}"]:
                self.rows[path] = set(numbers)

        self.places = sorted(set(map(self.home, self.objects)) | set(self.rows))  # objects, and arrays for their rows

    def kinds(self, place):
        """What may be set there, or in the rows of an array."""
        shape = self.shapes[generic(f"{place}.0" if place in self.rows else place)]
        return {leaf: attributes for leaf, (attributes, _) in shape.items()}

    def has(self, path):
        above, _, leaf = path.rpartition(".")
        return leaf in self.shapes.get(generic(above), {})

    def home(self, path):
        """Whose parallel client it is: a row is its array's."""
        above, _, last = path.rpartition(".")
        return above if last.isdigit() and above in self.rows else path

    def line(self, op):
        if op[0] != "set":
            return f"{op[0]} {op[1]}"
        return "set " + " ".join(f"{op[1]}.{leaf} {word(text)}" for leaf, text in op[2].items())

    def note(self, *entry):
        """One line of the journal, if one is kept; it is outside when the power goes."""
        if self.journal is not None:
            os.write(self.journal, json.dumps(entry).encode() + b"\n")

    def begin(self, op):
        self.note("begin", op)
        self.unsure[self.home(op[1])] = op

    def died(self, op, answer, not_done):
        """Somebody died before the answer; it may say what became of the change. Of a row that may be new it
        does not: that is seen when the store is read."""
        changed = op[0] == "set" and "parameters have changed" in answer
        if changed or not_done:
            del self.unsure[self.home(op[1])]
        if changed:
            self.make_so(op)

    def done(self, op, answer):
        """It was confirmed."""
        self.note("done", op, answer)
        array, _, last = answer.rpartition(".")
        if op[0] == "add":
            if array != op[1] or not last.isdigit() or int(last) <= max(self.rows[array], default=0):
                raise Wrong(f"add {op[1]}: {answer}")
            if self.highest.get(array, int(last) - 1) != int(last) - 1:
                raise Wrong(f"add {op[1]}: {answer}, the highest number so far is {self.highest[array]}")
        elif answer != "ok":
            raise Wrong(f"{self.line(op)}: {answer}")
        del self.unsure[self.home(op[1])]
        self.make_so(op, int(last) if last.isdigit() else 0)

    def make_so(self, op, number=0):
        array, _, last = op[1].rpartition(".")
        if op[0] == "set":
            self.objects[op[1]].update(op[2])
        elif op[0] == "add":
            self.rows[op[1]].add(number)
            self.highest[op[1]] = number
            row = self.shapes[f"{generic(op[1])}.{{i}}"]
            self.objects[f"{op[1]}.{number}"] = {leaf: text for leaf, (_, text) in row.items()}
        else:
            self.rows[array].discard(int(last))
            self.objects.pop(op[1], None)

    def settle(self, store):
        """Makes what was unsure what it is in the store, if it is done or not begun; differences() sees the rest. What it
        so has, and had not."""
        values, rows = store
        changed = []
        for home, op in self.unsure.items():
            new = rows[home] - self.rows[home] if op[0] == "add" else set()
            if op[0] == "set":
                is_done = all(values.get(f"{op[1]}.{leaf}") == text for leaf, text in op[2].items())
            elif op[0] == "del":
                is_done = int(op[1].rpartition(".")[2]) not in rows[home]
            else:
                is_done = len(new) == 1 and min(new) > max(self.rows[home], default=0)
            if is_done:
                if op[0] != "set" or not op[2].items() <= self.objects[op[1]].items():
                    changed.append(op)
                self.make_so(op, min(new, default=0))
            if op[0] == "add":
                self.highest.pop(home, None)  # a row that was not made may have used its number up
        self.unsure.clear()
        return changed

    def differences(self, store):
        values, rows = store
        found = [f"rows of {path}: {sorted(rows.get(path, []))}, not {sorted(numbers)}"
                 for path, numbers in self.rows.items() if rows.get(path) != numbers]
        for path, leaves in self.objects.items():
            for leaf, text in leaves.items():
                seen = values.get(f"{path}.{leaf}")
                if seen != text:
                    found.append(f"{path}.{leaf}: {seen!r}, not {text!r}")
        return found


class Rest:
    """What no client changes: values and rows stay as they were at first, and each array's count is that of its rows."""

    def __init__(self, store, model):
        self.model = model
        self.first = self.of(store)

    def of(self, store):
        values, rows = store
        counts = {f"{array}NumberOfEntries" for array in rows}
        return {**{path: text for path, text in values.items()
                   if not (self.model.has(path) or path in counts or MOVES.search(path))},
                **{array: numbers for array, numbers in rows.items() if array not in self.model.rows}}

    def differences(self, store):
        values, rows = store
        now, first = self.of(store), self.first
        found = [f"{path}: {now.get(path)!r}, at first {first.get(path)!r}"
                 for path in sorted(now.keys() | first.keys()) if now.get(path) != first.get(path)]
        return found + [f"{array}NumberOfEntries: {values[f'{array}NumberOfEntries']!r}, there are {len(numbers)}"
                        for array, numbers in rows.items()
                        if values.get(f"{array}NumberOfEntries", str(len(numbers))) != str(len(numbers))]
