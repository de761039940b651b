"""Walks through the page with a real browser, beside the running gateway: who is let in, what each view shows
and does, and what the page does when the gateway goes and comes back. usage: walk.py BUILD"""
import os
import socket
import subprocess
import sys

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

import desk
from desk import Wrong, until

SERVICES = "InternetGatewayDevice.Services"
VIEWS = ["outside", "model", "requests", "access", "phone", "firmware", "health"]


def check(true, what):
    if not true:
        raise Wrong(what)


def field(browser, view, label):
    """The field of a label."""
    name = until(lambda: browser.sees(f".view.{view} label", label).get_attribute("for"), f"the field {label}")
    return browser.driver.find_element("id", name)


def type_in(browser, view, label, text):
    def typed():
        element = field(browser, view, label)
        element.clear()
        element.send_keys(text)
        return True
    until(typed, f"the field {label} with “{text}”")


# ---- who is let in ----

STRANGERS = [
    ("no token", 401, {"Authorization": None}),
    ("another token", 401, {"Authorization": "Bearer " + 32 * "0"}),
    ("the token with more behind", 401, {"more": "0"}),
    ("another page", 403, {"Origin": "http://example.org"}),
    ("a page of another port", 403, {"Origin": "http://127.0.0.1:1"}),
    ("a page without a name", 403, {"Origin": "null"}),
    ("a name that leads here", 403, {"Host": "rebound.example.org"}),
    ("another site's script", 403, {"Sec-Fetch-Site": "cross-site"}),
    ("a page of another port, by its browser's word", 403, {"Sec-Fetch-Site": "same-site"}),
    ("a form", 400, {"Content-Type": "text/plain"}),
]


LONG = b" " * 400000  # a stranger may still send when the answer is known


def strangers(gateway):
    for what, status, headers in STRANGERS:
        if "more" in headers:
            headers = {"Authorization": f"Bearer {gateway.token}0"}
        for path in ("/api/nodes", "/api/set"):
            got = gateway.ask(path, LONG, **headers)[0]
            check(got == status, f"{what}, {path}: {got}, not {status}")
    for method in ("GET", "HEAD", "PUT"):
        got = gateway.ask("/api/events", method=method, Authorization=None)[0]
        check(got == 401, f"{method} of events without a token: {got}, not 401")
    own = {"Origin": f"http://127.0.0.1:{gateway.port}", "Sec-Fetch-Site": "same-origin"}
    for what, status, path, body in (
        ("the page itself", 200, "/api/nodes", b"{}"),
        ("no call", 404, "/api/nothing", b"{}"),
        ("no object", 400, "/api/nodes", b"[1]"),
        ("no JSON", 400, "/api/nodes", b"{"),
        ("a path that is a number", 400, "/api/nodes", b'{"path":1}'),
        ("bytes that are no text", 400, "/api/nodes", b'{"path":"\xff"}'),
        ("too much", 413, "/api/set", b" " * 600000),
    ):
        got = gateway.ask(path, body, **own)[0]
        check(got == status, f"{what}: {got}, not {status}")
    for path in ("/../panel.cpp", "/%2e%2e/panel.cpp", "/..%2fpanel.cpp", "/js/../../panel.cpp"):
        got = gateway.ask(path, method="GET")[0]
        check(got == 404, f"{path}: {got}, not 404")
    status, body, headers = gateway.ask("/", method="GET", Authorization=None)
    check(status == 200 and b"<main" in body, "the page's own file is not served")
    policy = headers["Content-Security-Policy"]
    check("default-src 'none'" in policy and "unsafe" not in policy, f"policy: {policy}")
    check(headers["Cache-Control"] == "no-store" and headers["X-Content-Type-Options"] == "nosniff", str(headers))


def listens_nowhere_else(gateway):
    lines = subprocess.run(["ss", "-Hltn", f"sport = :{gateway.port}"], capture_output=True, text=True, check=True).stdout
    check([line.split()[3] for line in lines.splitlines()] == [f"127.0.0.1:{gateway.port}"], f"it listens on: {lines}")
    check(gateway.run("stat -c %a /var/run/panel /var/run/panel/socket /var/run/panel/token") == "700\n600\n600\n", "others may open its files")


def refusals(gateway, build):
    for port, why in (("0", "is no port"), ("65536", "is no port"), ("123456", "is no port"), (str(gateway.port), "in use")):
        done = subprocess.run([f"{desk.ROOT}/devkit/sandbox", "--build", build, "--panel", port, "--", "true"], capture_output=True, text=True, check=False)
        check(done.returncode == 2 and why in done.stderr and done.stdout == "", f"--panel {port}: {done}")


def one_after_the_other(build):
    """Who starts the next gateway right behind one that has ended finds its port free."""
    port = str(desk.free_port())
    for _ in range(5):
        done = subprocess.run([f"{desk.ROOT}/devkit/sandbox", "--build", build, "--panel", port, "--", "true"], capture_output=True, text=True, check=False)
        check(done.returncode == 0, f"--panel {port} once more: {done}")


# ---- the views ----

def while_asked(browser, words, work):
    """Does the work; the answer to the page's call that has the words waits until it is done."""
    browser.js("""const [words] = arguments;
        window.real = window.fetch;
        window.fetch = async (...asked) => {
            const answer = await window.real(...asked);
            if (asked[1]?.body?.includes(words)) await new Promise((done) => { window.letGo = done; });
            return answer;
        };""", words)
    work(lambda: until(lambda: browser.js("return window.letGo !== undefined"), f"a call with “{words}”"))
    browser.js("window.fetch = window.real; window.letGo(); delete window.letGo")


def go_to(browser, text):
    type_in(browser, "model", "Search", text)
    browser.click(".found-list a", text.rsplit(".", 1)[-1])
    browser.sees(".parameter.found")
    type_in(browser, "model", "Search", " ")


def model(gateway, browser):
    browser.view("model")
    go_to(browser, "ServiceTelnet.Port")
    type_in(browser, "model", "Port", "2323,2324")
    type_in(browser, "model", "Enable", "1")
    browser.sees(".bar", "2 changes")
    browser.click(".bar button", "Plan")
    browser.sees(".details .commands", "ServiceTelnet.Enable: “0”, then “1”")
    check("-p 2324" in browser.sees(".details .commands").text, "the plan has no command line")
    check(gateway.run(f"cfgcmd get {SERVICES}.ServiceTelnet.Enable") == "0\n", "a plan was done")
    browser.click(".bar button", "Apply")
    browser.sees(".details .said", "Done")
    browser.sees(".details .commands", "telnetd -l /usr/sbin/ams_cli -p 2324")
    until(lambda: gateway.run("ss -Hltn 'sport = :2323 or sport = :2324' | wc -l") == "2\n", "telnetd on both ports")
    # what is refused stays in its field, with what it needs
    type_in(browser, "model", "Port", "23;reboot")
    browser.click(".bar button", "Apply")
    browser.sees(".parameter.changed .error", "port list")
    kept = field(browser, "model", "Port").get_attribute("value")
    check(kept == "23;reboot", f"the refused value is now “{kept}”")
    check(gateway.run(f"cfgcmd get {SERVICES}.ServiceTelnet.Port") == "2323,2324\n", "the refused value was set")
    browser.click(".bar button", "Discard")
    # rows
    go_to(browser, "X_CT-COM_UserInfo.UserName")
    browser.click(".below a", "UserList")
    browser.click(".actions button", "Plan a row")
    browser.sees(".details .commands", "UserList.2")
    browser.click(".actions button", "Add a row")
    browser.sees(".details .path", "UserList.2")
    browser.sees(".details .said", "Added row 2")
    browser.click(".actions button", "Plan the deletion")
    browser.sees(".details .commands", "UserList.2: gone")
    check(gateway.run("cfgcmd list InternetGatewayDevice.X_CT-COM_UserInfo.UserList") == "1,2\n", "a plan deleted the row")
    browser.click(".actions button", "Delete this row")
    browser.click(".actions button", "Really delete row 2")
    browser.sees(".details .said", "Deleted row 2")
    check(gateway.run("cfgcmd list InternetGatewayDevice.X_CT-COM_UserInfo.UserList") == "1\n", "the row is still there")
    # a stranger's text is a text, wherever it is shown
    gateway.run("cfgcmd set InternetGatewayDevice.DeviceInfo.ProvisioningCode '<img src=x onerror=document.title=1>'")
    go_to(browser, "DeviceInfo.ProvisioningCode")
    until(lambda: field(browser, "model", "ProvisioningCode").get_attribute("value").startswith("<img"), "the text in its field")
    check(browser.js("return document.querySelectorAll('img[src=x]').length") == 0, "a text became markup")
    # what is typed while an answer is on its way stays
    def type_twice(answered):
        type_in(browser, "model", "ProvisioningCode", "first")
        browser.click(".bar button", "Apply")
        answered()
        type_in(browser, "model", "ProvisioningCode", "second")
    while_asked(browser, "first", type_twice)
    browser.sees(".details .said", "Done")
    browser.sees(".bar", "1 change")
    typed = field(browser, "model", "ProvisioningCode").get_attribute("value")
    check(typed == "second", f"what was typed meanwhile is now “{typed}”")
    check(gateway.run("cfgcmd get InternetGatewayDevice.DeviceInfo.ProvisioningCode") == "first\n", "what was typed first was not set")
    browser.click(".bar button", "Discard")
    # the tree by keys
    browser.js("arguments[0].focus()", browser.sees("[role=treeitem]"))
    for key in (Keys.HOME, Keys.ARROW_RIGHT, Keys.ARROW_DOWN):
        browser.driver.switch_to.active_element.send_keys(key)
    check(browser.driver.switch_to.active_element.get_attribute("aria-level") == "2", "the keys do not lead down the tree")


def outside(gateway, browser):
    browser.view("outside")
    browser.sees(".lamp.on", "Power")
    gateway.run("cfgcmd set InternetGatewayDevice.X_CT-COM_UserInfo.Result 1")
    browser.sees(".lamp.on", "Internet")
    gateway.run("cfgcmd set InternetGatewayDevice.X_CT-COM_UserInfo.Result 0")
    browser.sees(".lamp.off", "Internet")
    calls = lambda: int(gateway.run("grep -c key_press.sh /var/log/devkit/calls || true"))
    before = calls()
    hand = ActionChains(browser.driver)
    hand.click_and_hold(browser.sees(".key", "WPS")).perform()
    until(lambda: float(browser.sees(".held", " s").text.split()[0]) > 1.2, "a key that is held for a second")
    hand.reset_actions()
    hand.release().perform()
    until(lambda: calls() == before + 1, "the key script's call")
    browser.press(".key-box .at-once", "Press", "Press")  # the first key's
    until(lambda: calls() == before + 2, "the key script's call without a hold")
    browser.sees(".log .call", "key_press.sh")
    browser.press(".port", "LTE stick", "Unplug")
    browser.sees(".lamp.off", "LTE")
    browser.press(".port", "LTE stick", "Plug in")
    browser.sees(".lamp.on", "LTE")


def phone(gateway, browser):
    browser.view("phone")
    until(lambda: browser.sees(".composer textarea").send_keys("hello gateway <b>") is None, "a text to send")
    browser.click(".composer button", "Send")
    browser.sees(".thread .mine", "hello gateway <b>")
    until(lambda: "hello gateway" in gateway.run(f"cfgcmd get {SERVICES}.X_KVO_ShortMsg.MsgInbox"), "the message in the inbox")
    browser.sees(".meter-row", "1 of 50")
    type_in(browser, "phone", "Text", "hello phone")
    browser.click(".phone .card button", "Send")
    browser.sees(".thread .theirs", "hello phone")
    def send_twice(answered):
        write = lambda text: until(lambda: browser.sees(".composer textarea").send_keys(text) is None, "a text to send")
        write("first of two")
        browser.click(".composer button", "Send")
        answered()
        write(" and more")
    while_asked(browser, "first of two", send_twice)
    until(lambda: browser.sees(".thread .mine:last-child").text.startswith("first of two\n"), "what was sent, as it was sent")
    check(browser.sees(".composer textarea").get_attribute("value") == "first of two and more", "what was typed meanwhile is gone")
    browser.click(".phone .card button", "Dial")
    browser.sees(".answer", "Balance")
    choose = lambda signal: Select(field(browser, "phone", "The signal")).select_by_visible_text(signal)
    choose("no network")
    browser.sees(".bars[aria-label='Signal 0 of 4']")
    type_in(browser, "phone", "Text", "to nobody")
    browser.click(".phone .card button", "Send")
    browser.sees(".phone .card", "+CMS ERROR: 331")
    choose("strong")
    browser.sees(".bars[aria-label='Signal 4 of 4']")


def access(gateway, browser):
    browser.view("access")
    if gateway.run("iptables -S >/dev/null 2>&1 && echo filter") == "":
        print("access: skipped, this machine's kernel has no packet filter for the sandbox")
        return
    browser.sees(".cell.open", "open")
    until(lambda: field(browser, "access", "Access control").click() is None, "access control to switch")
    browser.sees(".cell.closed", "closed")
    browser.click(".entry-form button", "Add entry")
    browser.sees(".entries li", "TELNET")
    browser.sees(".cell[aria-label='TELNET 2323, LAN, IPv4: closed']")
    browser.click(".cell[aria-label='TELNET 23, LAN, IPv4: open']")
    browser.sees(".rules code", "-A SCL_IP_ACCEPT -i br+ -p tcp -m tcp --dport 23 -j ACCEPT")
    browser.sees(".rules", "made by entry 1")
    check("-A SCL_IP_ACCEPT -i br+ -p tcp" in gateway.run("iptables -S"), "no rule was made")


def requests(gateway, browser):
    browser.view("requests")
    browser.press(".requests-table tr", "FuncServTelnet", "set")
    browser.sees("svg.sequence .lane-name", "shell")
    browser.sees("svg.sequence", "telnetd -l /usr/sbi")
    # somebody else's, live
    gateway.run(f"cfgcmd set {SERVICES}.ServiceTelnet.Port 2342")
    browser.press(".requests-table tr", "ServiceTelnet.Port", "set")
    browser.sees("svg.sequence .lane-name", "cfgcmd[")
    browser.sees(".request-detail .before", "was “2323,2324”, is “2342”")
    browser.sees(".request-detail .commands", "-p 2342")
    gateway.run(f"cfgcmd publish portmgr:wan 0x100037 --text told && cfgcmd set {SERVICES}.ServiceTelnet.Port 2323,2324")
    browser.sees(".requests-table tr", "portmgr:wan")


def firmware(gateway, browser):
    browser.view("firmware")
    browser.click(".firmware button", "Order the download")
    browser.sees(".firmware .said", "Flashed")
    check("success" in gateway.run("vermgtctl state"), "the version manager did not flash")
    check(gateway.run("tail -n 1 /var/log/devkit/commands") == "reboot\n", "no reboot")


def health(gateway, browser):
    browser.view("health")
    browser.sees(".plot .legend", "MiB")
    until(lambda: len(browser.js("return document.querySelectorAll('.plot-lines path')[3].getAttribute('d')") or "") > 10, "a line of the memory")
    browser.sees(".facts-table tbody th", "sysmgr:devInfo")


# ---- what the page decides by itself ----

KEYS = [  # what the driver was told of the board's Reset key
    {"event": 2, "on_press": False, "trigger": 1, "abandon": 4}, {"event": 3, "on_press": False, "trigger": 5, "abandon": 14},
    {"event": 4, "on_press": True, "trigger": 15, "abandon": 0}, {"event": 11, "on_press": True, "trigger": 4, "abandon": 0},
]
PARTS = [{"other": "1", "part": ["07", 1, 2], "text": "long "}, {"other": "1", "part": ["07", 2, 2], "text": "one"}, {"other": "1", "part": ["", 0, 0], "text": "short"}]
ENTRY = {"Enable": "1", "IPMode": "1", "ServiceName": "HTTP", "AccessDirection": "WAN", "SrcIpRange": "10.0.0.1-10.0.0.9", "Port": "0", "Action": "ACCEPT"}
RULE = "-A SCL_IP_ACCEPT ! -i br+ -p tcp -m iprange --src-range 10.0.0.1-10.0.0.9 -m tcp --dport 80 -j ACCEPT"
HTTP = {"service": "HTTP", "port": 80}
DECISIONS = [
    ("outside", "(m, a) => m.fires(a, 0.9).map((each) => each.event)", KEYS, []),
    ("outside", "(m, a) => m.fires(a, 1).map((each) => each.event)", KEYS, [2]),
    ("outside", "(m, a) => m.fires(a, 4).map((each) => each.event)", KEYS, [11]),
    ("outside", "(m, a) => m.fires(a, 13.9).map((each) => each.event)", KEYS, [3, 11]),
    ("outside", "(m, a) => m.fires(a, 20).map((each) => each.event)", KEYS, [4, 11]),
    ("phone", "(m, a) => m.joined(a).map((each) => each.text)", PARTS, ["long one", "short"]),
    ("phone", "(m, a) => m.joined(a).map((each) => each.text)", PARTS[1:], ["one", "short"]),
    ("phone", "(m, a) => m.added(...a)", [["a", "b"], ["a", "b", "c"]], ["c"]),
    ("phone", "(m, a) => m.added(...a)", [["a", "b"], ["b", "b", "c"]], ["b", "c"]),
    ("phone", "(m, a) => m.added(...a)", [["a", "b"], ["x", "y"]], ["x", "y"]),
    ("phone", "(m, a) => m.plain(a)", "1 A&#38;B<br>&quot;2&quot; <b>", '1 A&B\n"2" <b>'),
    ("firmware", "(m, a) => m.progress(a)", {"lines": ["curl x"], "order": "", "fault": ""}, {"at": 1, "ended": ""}),
    ("firmware", "(m, a) => m.progress(a)", {"lines": [], "order": "downloading", "fault": ""}, {"at": 2, "ended": ""}),
    ("firmware", "(m, a) => m.progress(a)", {"lines": [], "order": "success", "fault": "0"}, {"at": 4, "ended": ""}),
    ("firmware", "(m, a) => m.progress(a)", {"lines": ["reboot"], "order": "success", "fault": "0"}, {"at": 4, "ended": "done"}),
    ("firmware", "(m, a) => m.progress(a)", {"lines": [], "order": "fwchk_failed", "fault": "9001"}, {"at": 2, "ended": "failed"}),
    ("firmware", "(m, a) => m.progress(a)", {"lines": [], "order": "", "fault": "9001"}, {"at": 1, "ended": "failed"}),
    ("plot", "(m, a) => a.map(m.topOf)", [0, 0.3, 1, 1.1, 51, 100], [1, 0.5, 1, 2, 100, 100]),
    ("access", "(m, a) => m.entryOf(...a) !== undefined", [RULE, HTTP, "WAN", 1, [ENTRY]], True),
    ("access", "(m, a) => m.entryOf(...a) !== undefined", [RULE, HTTP, "WAN", 2, [ENTRY]], False),
    ("access", "(m, a) => m.entryOf(...a) !== undefined", [RULE.replace("ACCEPT ", "DROP "), HTTP, "WAN", 1, [ENTRY]], False),
    ("access", "(m, a) => m.entryOf(...a) !== undefined", [RULE, HTTP, "WAN", 1, [{**ENTRY, "SrcIpRange": ""}]], False),
    ("access", "(m, a) => m.rowsOf(...a).map((row) => `${row.service} ${row.port}`).slice(0, 2)", [{"ServiceTelnet.Port": "2323"}, [{"ServiceName": "TELNET", "Port": "0"}]], ["TELNET 2323", "TELNET 23"]),
    ("requests", "(m, a) => m.stepsOf(a).map((each) => each.to)", {"command": "get", "module": "", "result": "done", "total_ms": 1}, [1, 0]),
    ("requests", "(m, a) => m.stepsOf(a).map((each) => each.to)", {"command": "set", "module": "m", "result": "refused", "total_ms": 1}, [1, 0]),
    ("requests", "(m, a) => m.stepsOf(a).map((each) => each.at)",
     {"command": "set", "module": "m", "result": "done", "queued_ms": 1, "module_ms": 5, "total_ms": 7, "commands": [{"line": "at-mngr AT", "at_ms": 2, "took_ms": 3}]}, [0, 1, 2, 2, 5, 6, 7]),
]


def decisions(browser):
    for module, function, given, want in DECISIONS:
        got = browser.driver.execute_async_script(
            f"const [given, done] = arguments; import('/{module}.js').then((m) => done(({function})(m, given)), (error) => done(String(error)));", given)
        check(got == want, f"{module}, {function} of {given}: {got}, not {want}")


# ---- what holds for all ----

CONTRAST = """
const rgb = (text) => { const [r, g, b, a = 1] = text.match(/[\\d.]+/g).map(Number); return {r, g, b, a}; };
const over = (top, under) => ({r: top.r * top.a + under.r * (1 - top.a), g: top.g * top.a + under.g * (1 - top.a), b: top.b * top.a + under.b * (1 - top.a), a: 1});
const light = ({r, g, b}) => { const [x, y, z] = [r, g, b].map((each) => { each /= 255; return each <= 0.04045 ? each / 12.92 : ((each + 0.055) / 1.055) ** 2.4; }); return 0.2126 * x + 0.7152 * y + 0.0722 * z; };
const ground = (element) => {
  let colour = {r: 0, g: 0, b: 0, a: 0};
  for (let each = element; each; each = each.parentElement) {
    const style = getComputedStyle(each);
    const own = style.backgroundImage.includes('gradient') ? rgb(style.backgroundImage.match(/rgb[^)]*/)[0]) : rgb(style.backgroundColor);
    colour = colour.a === 0 ? own : colour.a < 1 ? {...over(colour, own), a: Math.max(colour.a, own.a)} : colour;
    if (colour.a === 1) return colour;
  }
  return colour;
};
return [...document.querySelectorAll('body *')].filter((each) => each.checkVisibility({checkOpacity: true, checkVisibilityCSS: true}) && !each.closest('button:disabled') &&
  [...each.childNodes].some((node) => node.nodeType === 3 && node.data.trim() !== '')).map((each) => {
    const under = ground(each); const style = getComputedStyle(each);
    const ink = over(rgb(each.namespaceURI.endsWith('svg') ? style.fill : style.color), under);
    const [a, b] = [light(ink), light(under)];
    return [each.className, each.textContent.slice(0, 30), (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05)];
  }).filter(([, , ratio]) => ratio < 4.5).map((each) => each.join(' | '));
"""

NAMED = {"button", "textbox", "searchbox", "combobox", "checkbox", "switch", "link", "treeitem", "tree", "spinbutton", "meter", "navigation", "image", "img"}


def accessible(browser):
    for name in VIEWS:
        browser.view(name)
        for dark in (False, True):
            browser.scheme(dark)
            poor = browser.js(CONTRAST)
            check(not poor, f"{name}, {'dark' if dark else 'light'}: contrast below 4.5: {poor[:5]}")
        browser.scheme(False)
        nodes = browser.driver.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        nameless = [node["role"]["value"] for node in nodes if not node.get("ignored") and node["role"]["value"] in NAMED and not node.get("name", {}).get("value")]
        check(not nameless, f"{name}: without a name for screen readers: {nameless}")
        for width in (360, 800, 1280):
            browser.size(width, 860)
            wide = browser.js("return document.documentElement.scrollWidth - innerWidth")
            check(wide <= 0, f"{name}: {wide} pixels too wide at {width}")
        browser.size(1280, 860)


def of_the_server(gateway):
    """KiB resident."""
    return int(gateway.run("awk '/VmRSS/ { print $2 }' /proc/$(cat /var/run/devkit/panel)/status"))


def of_the_page(browser):
    """Bytes of the heap and nodes of the document."""
    browser.driver.execute_cdp_cmd("HeapProfiler.collectGarbage", {})
    metrics = {each["name"]: each["value"] for each in browser.driver.execute_cdp_cmd("Performance.getMetrics", {})["metrics"]}
    return metrics["JSHeapUsedSize"], metrics["Nodes"]


def stuck():
    """The server's connections with a lot that the other side does not read; they are of the forwarder's network."""
    lines = subprocess.run(["ss", "-Hxan"], capture_output=True, text=True, check=True).stdout.splitlines()
    return {words[5] for line in lines if "/var/run/panel/socket" in line and int((words := line.split())[3]) > 60000}


def many_events(gateway, browser):
    """Neither the server nor the page grows."""
    browser.driver.execute_cdp_cmd("Performance.enable", {})
    browser.view("outside")
    before = after = None
    for last in (100000, 200000):  # the first time fills what is kept
        for end in range(last - 90000, last + 1, 10000):
            gateway.run(f"seq -f 'echo %.0f of many command lines that are as long as most are' {end - 9999} {end} >>/var/log/devkit/commands")
            browser.sees(".log code", f"echo {end} ")
        before, after = after, (of_the_server(gateway), *of_the_page(browser))
    server = 4096 if not os.environ.get("GATEWAY_SANITIZE") else 1 << 20  # sanitizers keep what was freed
    for what, had, has, more in zip(("server: KiB", "page: bytes", "page: nodes"), before, after, (server, 2000000, 500)):
        check(has <= had + more, f"{what}: {had} before 100,000 events, {has} behind them")


def deaf_page(gateway, browser):
    """Who reads nothing is let go, and others see all meanwhile."""
    with socket.create_connection(("127.0.0.1", gateway.port)) as deaf:
        deaf.sendall(f"GET /api/events HTTP/1.1\r\nHost: 127.0.0.1:{gateway.port}\r\nAuthorization: Bearer {gateway.token}\r\n\r\n".encode())
        for i in range(20):  # the kernel takes some MiB for it
            gateway.run(f"printf 'echo deaf {i} %03900d\\n' $(seq 400) >>/var/log/devkit/commands")
            browser.sees(".log code", f"echo deaf {i} ")
            if waits := stuck():
                break
        check(waits, "the connection that reads nothing takes all the same")
        until(lambda: not waits & stuck(), "the end of the connection that reads nothing")


def goes_and_comes_back(gateway, browser):
    browser.view("model")
    go_to(browser, "DeviceInfo.ProvisioningCode")
    type_in(browser, "model", "ProvisioningCode", "half a w")
    gateway.run("gateway-daemon restart dbmgr")
    gateway.run("gateway-daemon stop sysmgr")
    browser.sees("#processes .gone", "sysmgr")
    browser.press("#processes .gone", "sysmgr", "Start")
    until(lambda: not browser.driver.find_elements("css selector", "#processes .gone"), "all processes again")
    gateway.run("gateway-daemon stop panel")
    browser.sees("#link.lost")
    gateway.run("gateway-daemon start panel")
    browser.sees("#link.open")
    check(field(browser, "model", "ProvisioningCode").get_attribute("value") == "half a w", "what was typed is lost")
    field(browser, "model", "ProvisioningCode").send_keys("ord")
    browser.click(".bar button", "Apply")
    browser.sees(".details .said", "Done")
    check(gateway.run("cfgcmd get InternetGatewayDevice.DeviceInfo.ProvisioningCode") == "half a word\n", "it was not set")


def main():
    gateway = desk.Desk(sys.argv[1])
    browser = None
    try:
        strangers(gateway)
        listens_nowhere_else(gateway)
        refusals(gateway, sys.argv[1])
        one_after_the_other(sys.argv[1])
        browser = desk.Browser()
        browser.open(gateway.address)
        check("#" + gateway.token not in browser.driver.current_url, "the address still shows the token")
        decisions(browser)
        for step in (model, outside, requests, access, phone, firmware, health):
            step(gateway, browser)
        accessible(browser)
        errors = browser.errors()
        check(not errors, f"the console says: {errors}")
        many_events(gateway, browser)
        deaf_page(gateway, browser)
        goes_and_comes_back(gateway, browser)
    except Wrong as wrong:
        if browser:
            browser.picture("/tmp/panel-walk.png")
        sys.exit(f"walk: {wrong}\n" + "\n".join(gateway.said[-5:]))
    finally:
        if browser:
            browser.end()
        status = gateway.end()
    check(status == 0, f"the gateway ended with {status}")
    print("walk: all seen")


if __name__ == "__main__":
    main()
