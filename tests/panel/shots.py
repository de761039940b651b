"""Pictures of each view, to look at: shots.py BUILD FOLDER [VIEW...]"""
import sys

import desk

build, folder, *views = sys.argv[1:]
gateway = desk.Desk(build)
browser = desk.Browser()
try:
    browser.open(gateway.address)
    for name in views or ["outside", "model", "requests", "access", "phone", "firmware", "health"]:
        browser.view(name)
        for width, dark in ((1280, False), (1280, True), (390, False)):
            browser.size(width, 860)
            browser.scheme(dark)
            import time
            time.sleep(1.5)
            browser.picture(f"{folder}/{name}-{width}{'-dark' if dark else ''}.png")
    print(browser.errors())
finally:
    browser.end()
    gateway.end()
