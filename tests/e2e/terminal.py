#!/usr/bin/env python3
# A terminal with a shell of its own, and who sits at it: terminal.py COMMAND...
# Runs COMMAND in the foreground, as a shell does, and does what the lines of its standard input say:
#   see REGEX      waits until the terminal shows it, behind what was seen before
#   type TEXT      types the text, with \n and \x03 as in Python
#   size R C       the window has another size now
# Then it waits for the command's end and prints its status, and what the shell would read next as
# if it were typed: "status 0 typed ''".
import fcntl
import os
import pty
import re
import select
import signal
import struct
import sys
import termios
import time

LIMIT = 60  # s for anything to show


def shell(command, report):
    """The session's leader; ends with the command. Whatever started the tests, a login ignores nothing."""
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):
        signal.signal(number, signal.SIG_DFL)
    signal.signal(signal.SIGTTOU, signal.SIG_IGN)
    child = os.fork()
    if child == 0:
        os.setpgid(0, 0)
        os.tcsetpgrp(0, os.getpid())
        signal.signal(signal.SIGTTOU, signal.SIG_DFL)
        os.execvp(command[0], command)
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    os.tcsetpgrp(0, os.getpgrp())
    mode = termios.tcgetattr(0)
    mode[3] &= ~termios.ICANON
    termios.tcsetattr(0, termios.TCSANOW, mode)
    typed = os.read(0, 100) if select.select([0], [], [], 0)[0] else b""
    os.write(report, f"status {status} typed {typed.decode()!r}".encode())
    os._exit(0)


def see(master, shown, pattern):
    """What is shown behind the first match."""
    end = time.monotonic() + LIMIT
    while not (match := re.search(pattern, shown)):
        if not select.select([master], [], [], max(0, end - time.monotonic()))[0]:
            sys.exit(f"never shown: {pattern}\nbut: {shown}")
        try:
            shown += os.read(master, 4096).decode(errors="replace")
        except OSError:
            sys.exit(f"ended, and never shown: {pattern}\nbut: {shown}")
    return shown[match.end():]


def main():
    result, report = os.pipe()
    leader, master = pty.fork()
    if leader == 0:
        shell(sys.argv[1:], report)
    os.close(report)
    shown = ""
    for line in sys.stdin:
        what, _, text = line.rstrip("\n").partition(" ")
        if what == "see":
            shown = see(master, shown, text)
        elif what == "type":
            os.write(master, text.encode().decode("unicode_escape").encode())
        elif what == "size":
            rows, columns = map(int, text.split())
            fcntl.ioctl(master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        else:
            sys.exit(f"see, type or size, not: {line}")
    while select.select([master, result], [], [], LIMIT)[0]:
        if select.select([result], [], [], 0)[0]:
            break
        try:
            os.read(master, 4096)
        except OSError:
            break
    print(os.read(result, 1000).decode())


main()
