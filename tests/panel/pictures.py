"""Makes the pictures of docs/panel.md: pictures.py BUILD"""
import os
import sys

import desk

FOLDER = f"{desk.ROOT}/docs"
DEVICE, SERVICES = "InternetGatewayDevice.DeviceInfo", "InternetGatewayDevice.Services"
ACCESS = f"{SERVICES}.ServiceAccessControl"


def prepare(gateway):
    """A gateway that has something to show."""
    gateway.run("cfgcmd set InternetGatewayDevice.X_CT-COM_UserInfo.Result 1")
    for service, side, more in (("TELNET", "LAN", ""), ("HTTP", "WAN", "10.0.0.1-10.0.0.9"), ("SSH", "LAN", ""), ("ICMP", "", "")):
        row = gateway.run(f"cfgcmd add {ACCESS}.ServiceCtrlList").strip()
        gateway.run(f"cfgcmd set {row}.ServiceName {service} {row}.AccessDirection '{side}' {row}.SrcIpRange '{more}' {row}.IPMode 3 {row}.Enable 1")
    gateway.run(f"cfgcmd set {ACCESS}.Enable 1")


def main():
    gateway = desk.Desk(sys.argv[1])
    browser = desk.Browser(1120, 760)
    try:
        prepare(gateway)
        browser.open(gateway.address)
        browser.view("model")
        browser.js("location.hash = arguments[0]", f"#/model/{SERVICES}.ServiceTelnet")
        for leaf, value in (("Enable", "1"), ("Port", "2323,2324")):
            name = browser.sees(".parameter label", leaf).get_attribute("for")
            browser.driver.find_element("id", name).clear()
            browser.driver.find_element("id", name).send_keys(value)
        browser.press(".bar", "2 changes", "Plan")
        browser.sees(".details .commands", "telnetd")
        browser.picture(f"{FOLDER}/panel_model.png")
        browser.press(".bar", "2 changes", "Apply")
        browser.sees(".details .said", "Done")
        browser.view("outside")
        browser.sees(".lamp.on", "Internet")
        browser.sees(".log .command", "telnetd")
        browser.picture(f"{FOLDER}/panel_outside.png")
        gateway.run(f"cfgcmd get {DEVICE}.UpTime {SERVICES}.ServiceSSH.Port; cfgcmd add {SERVICES}.X_KVO_IPSec.TunnelList; cfgcmd list {ACCESS}.ServiceCtrlList")
        gateway.run("cfgcmd publish portmgr:wan 0x100037 --text InternetGatewayDevice.WANDevice.1")
        gateway.run(f"cfgcmd set {SERVICES}.ServiceTelnet.Port 2325")
        browser.view("requests")
        browser.press(".requests-table tr", "ServiceTelnet.Port", "set")
        browser.sees("svg.sequence")
        browser.picture(f"{FOLDER}/panel_requests.png")
        browser.scheme(True)
        browser.view("access")
        browser.click(".cell.for-some")
        browser.picture(f"{FOLDER}/panel_access.png")
    finally:
        browser.end()
        gateway.end()
    print(sum(os.path.getsize(f"{FOLDER}/panel_{name}.png") for name in ("outside", "model", "requests", "access")), "bytes in all")


if __name__ == "__main__":
    main()
