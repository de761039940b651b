"""What acts beyond the store: modem, keys, notifications, timers, informs, downloads, access control. One of them
runs beside the parallel clients, on parameters that are nobody else's."""
import os
import subprocess
import threading
import typing

import gateway
from gateway import CALLS, COMMANDS, INFORMS, Wrong, run, text_of, until, word
from model import PLAIN, ROOT

SMS = f"{ROOT}.Services.X_KVO_ShortMsg"
ACCESS = f"{ROOT}.Services.ServiceAccessControl"
ORDER = f"{ROOT}.X_TR69_Transfer.X_KVO_Download"
SERVER = f"{ROOT}.ManagementServer"
CONNECTION = f"{ROOT}.WANDevice.1.WANConnectionDevice.1.WANIPConnection.1"
OWN = "13800138000"
FILTERS = subprocess.run(["iptables", "-S"], capture_output=True, check=False).returncode == 0


def grows(file, line, act):
    """The act makes the line come once more."""
    before = text_of(file).count(line)
    act()
    until(lambda: text_of(file).count(line) > before, f"another {line!r} in {file}")


def letters(rng, most):
    return "".join(rng.choices(PLAIN + " ü你", k=rng.randint(1, most))).strip() or "x"


def inbox(client):
    """Index, number and text of each message."""
    records = [record.split("}-{") for record in client.done(f"get {SMS}.MsgInbox").split("|,|") if record]
    return [(record[0], record[2], record[4]) for record in records]


def emptied(client):
    run("modemctl", "reset")
    run("modemctl", "number", OWN)
    if inbox(client):
        raise Wrong(f"an empty modem has {inbox(client)}")


def has(client, text):
    return until(lambda: [m for m in inbox(client) if m[2] == text], f"the message {text!r} in the inbox")[0]


def send(text):
    return f"set {SMS}.MsgSend.MsgTo {OWN} {SMS}.MsgSend.MsgContent {word(text)}"


def messages(client, rng):
    """One from the network, one to oneself; both are deleted."""
    emptied(client)
    number, text, own = f"27{rng.randint(10**8, 10**9)}", letters(rng, 200), "to myself " + letters(rng, 100)
    run("modemctl", "receive", "--from", number, "--text", text)
    client.done(send(own))
    got = [has(client, text), has(client, own)]
    if number not in got[0][1]:
        raise Wrong(f"the message of {number} is of {got[0][1]}")
    client.done(f"set {SMS}.DelIdx {','.join(message[0] for message in got)}")
    if inbox(client):
        raise Wrong(f"deleted messages are there: {inbox(client)}")


def unplugged(client, rng):
    """The modem goes, by hand or with its process, while a message is sent; the next one is sent."""
    emptied(client)
    go, back = rng.choice((
        (lambda: gateway.kill("modem"), lambda: gateway.daemon("start", "modem")),
        (lambda: run("modemctl", "behave", "vanish"), lambda: run("modemctl", "behave", "return"))))
    puller = threading.Timer(rng.random() / 20, go)  # any moment of the sending
    puller.start()
    answer = client.ask(send("cut off"))
    puller.join()
    if answer != "ok" and "refused set" not in answer:
        raise Wrong(f"a message while the modem goes: {answer}")
    back()
    emptied(client)
    text = letters(rng, 20)
    client.done(send(text))
    has(client, text)


def service_code(client, rng):
    text = letters(rng, 40)
    run("modemctl", "reset")
    run("modemctl", "ussd", "*100#", text)
    client.done(f"set {SMS}.USSD.Command *100#")
    menu = client.done(f"get {SMS}.USSD.Menu")
    client.done(f"set {SMS}.USSD.Command cancel")
    if menu != text:
        raise Wrong(f"the menu is {menu!r}, not {text!r}")


def key(_, rng):
    event = rng.choice((1, 2, 3, 4, 11))
    grows(CALLS, f"/usr/syscfg/key_press.sh {event}\n", lambda: run("front-panel", "press", str(event)))


def notification(client, _):
    """The port manager's: a management connection comes and goes."""
    def saved():
        client.done(f"refresh {SERVER}")
        return CONNECTION in client.done(f"get {SERVER}.X_KVO_TR069WANSAVE").split(",")

    run("cfgcmd", "publish", "portmgr:wan", "0x100037", "--text", CONNECTION)
    until(saved, "the connection in the saved list")
    run("cfgcmd", "publish", "portmgr:wan", "0x100039", "--text", CONNECTION)
    until(lambda: not saved(), "the saved list without the connection")


def inform(client, _):
    line = "manully_inform EV MI X_CT-COM_ManualInform\n"
    grows(INFORMS, line, lambda: client.done(f"set {SERVER}.X_CT-COM_ManualInform 1"))


def timer(client, rng):
    """Samba is applied a timer's period after the set."""
    on, line = rng.choice((("0", "\nkillall -q smbd\n"), ("1", "\n/usr/syscfg/media.sh samba &\n")))
    grows(COMMANDS, line, lambda: client.done(f"set {ROOT}.Services.ServiceSamba.Enable {on}"))


def download(client, rng):
    """An order that is done or fails, by the server's doing or the version manager's. Its thread ends, too."""
    how, name, password, code = rng.choice((
        ("normal", "fw.bin", "s3cret", "0"), ("slow 2", "fw.bin", "s3cret", "0"), ("normal", "fw.bin", "no", "9001"),
        ("normal", "none.bin", "s3cret", "9001"), ("reject", "fw.bin", "s3cret", "9001"),
        ("fail", "fw.bin", "s3cret", "9002"), ("occupied", "fw.bin", "s3cret", "9001")))
    if not os.path.exists("/var/www/fw.bin"):
        run("image-server", "start", "desk", "s3cret")
        run("vermgtctl", "image", "/etc/tr098_data_model.xml", "/var/www/fw.bin")
    threads = gateway.used("sysmgr")[2]
    run("vermgtctl", "behave", *how.split())
    client.done(f"sset {ORDER}.FaultCode before")
    client.done(f"set {ORDER}.URL http://127.0.0.1/digest/{name} {ORDER}.Username desk {ORDER}.Password {password} "
                f"{ORDER}.CommandKey key {ORDER}.FileType '1 Firmware Upgrade Image'")
    until(lambda: gateway.used("sysmgr")[2] == threads and client.done(f"get {ORDER}.FaultCode") != "before",
          "the end of the order")
    seen = client.done(f"get {ORDER}.FaultCode")
    if seen != code:
        raise Wrong(f"the order of {name} ({how}) ended with {seen}, not {code}")


def access(client, rng):
    """An entry is made, changed, removed; the packet filter follows, where the machine has one."""
    def is_so(port, open_now):
        if FILTERS and (f"--dport {port} -j ACCEPT" in run("iptables", "-S")) != open_now:
            raise Wrong(f"port {port} is {'not ' if open_now else ''}let in")

    ports = rng.sample(range(5000, 6000), 2)
    client.done(f"set {ACCESS}.Enable 1")
    row = client.done(f"add {ACCESS}.ServiceCtrlList")
    client.done(f"set {row}.ServiceName TCP {row}.AccessDirection LAN {row}.Action ACCEPT {row}.IPMode 1 "
                f"{row}.Port {ports[0]} {row}.Enable 1")
    is_so(ports[0], True)
    client.done(f"set {row}.Port {ports[1]}")
    is_so(ports[0], False)
    is_so(ports[1], True)
    client.done(f"del {row}")
    is_so(ports[1], False)


def disturbed(special, client, rng):
    """In the midst of a fault of somebody whom it needs: it may be done, refused or lost. Whether it was done to its end."""
    try:
        with gateway.patience_of(2):
            special.run(client, rng)
    except gateway.Hangs:
        raise
    except (Wrong, OSError, ValueError, LookupError):  # an answer, a process or a file that is not there
        return False
    return True


def tidy(client, threads):
    """What a special leaves that was cut short; `threads` is what sysmgr has without an order."""
    run("modemctl", "reset")
    run("vermgtctl", "behave", "normal")
    until(lambda: gateway.used("sysmgr")[2] == threads, "the end of the order")
    for row in client.done(f"list {ACCESS}.ServiceCtrlList").split(","):
        if row:
            client.done(f"del {ACCESS}.ServiceCtrlList.{row}")


class Special(typing.NamedTuple):
    name: str
    often: int  # the slow ones seldom
    run: typing.Callable
    beside: tuple = ()  # whom it needs beside sysmgr and dbmgr

    def meets(self, fault):
        """Whether somebody whom it needs is in the fault: else it has to be done as ever."""
        return not {"sysmgr", "dbmgr", *self.beside}.isdisjoint(fault)


SPECIALS = (
    Special("messages", 3, messages, ("modem",)),
    Special("unplugged", 1, unplugged, ("modem",)),
    Special("service codes", 1, service_code, ("modem",)),
    Special("keys", 3, key),
    Special("notifications", 2, notification),
    Special("informs", 2, inform),
    Special("timers", 2, timer),
    Special("access lists" if FILTERS else "access lists, unseen", 2, access),
    Special("downloads", 1, download, ("vermgt",)),
)
