#!/usr/bin/env python3
"""The two ends of the packet tests.

serve PORT...: answers on these TCP and UDP ports with the port's number, TCP then echoes. Prints
    "ready" once all are bound.
probe NAME=SOURCE=TARGET...: reads a table from standard input, tries each row from each source at
    once, prints a line for each result that the table does not say, and ends with 1 if there is one.
    A row is "PROTOCOL PORT WHO..." ("ping" has "-" for a port). WHO is the beginning of some
    sources' names, or one with "=RESULT" behind; the last word that fits a source counts, and
    a source that no word fits has to be closed.
    Results: open; closed (nothing comes back); refused; N (port N answered in its place).
hold SOURCE TARGET PORT: connects, prints "held", waits for a line on standard input, and prints
    whether the connection still carries data: open or closed.
"""
import asyncio
import concurrent.futures
import socket
import subprocess
import sys
import time

CLOSED_LIMIT = 1  # seconds in which nothing must come back
OPEN_LIMIT = 15  # seconds in which an answer has to come


async def serve(ports):
    async def echo(reader, writer):
        writer.write(b"%d\n" % writer.get_extra_info("sockname")[1])
        while line := await reader.readline():
            writer.write(line)
        writer.close()

    class Answer(asyncio.DatagramProtocol):
        def connection_made(self, transport):
            self.transport = transport

        def datagram_received(self, _, address):
            port = self.transport.get_extra_info("sockname")[1]
            self.transport.sendto(b"%d\n" % port, address)

    for port in ports:
        await asyncio.start_server(echo, None, port)  # both IP versions
        both = socket.socket(socket.AF_INET6, socket.SOCK_DGRAM)
        both.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 0)
        both.bind(("::", port))
        await asyncio.get_running_loop().create_datagram_endpoint(Answer, sock=both)
    print("ready", flush=True)
    await asyncio.Event().wait()


def endpoint(kind, source, limit):
    family = socket.AF_INET6 if ":" in source else socket.AF_INET
    end = socket.socket(family, kind)
    end.settimeout(limit)
    end.bind((source, 0))
    return end


def tcp_answer(source, target, port, limit):
    with endpoint(socket.SOCK_STREAM, source, limit) as end:
        end.connect((target, port))
        return end.makefile("rb").readline()


def udp_answer(source, target, port, limit):
    with endpoint(socket.SOCK_DGRAM, source, 0.5) as end:
        end.connect((target, port))
        stop = time.monotonic() + limit
        while True:
            end.send(b"?")
            try:
                return end.recv(16)
            except TimeoutError:
                if time.monotonic() > stop:
                    raise


def ping_answer(source, target, limit):
    command = ["busybox", "ping", "-c", "1", "-W", str(limit), "-I", source, target]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if " 0 packets received" in done.stdout:
        return "closed"
    return "open" if done.returncode == 0 else done.stdout.strip()


def result(protocol, source, target, port, wanted):
    limit = CLOSED_LIMIT if wanted == "closed" else OPEN_LIMIT
    try:
        if protocol == "ping":
            return ping_answer(source, target, limit)
        answer = {"tcp": tcp_answer, "udp": udp_answer}[protocol]
        port_that_answered = answer(source, target, int(port), limit).decode().strip()
        return "open" if port_that_answered == port else port_that_answered
    except ConnectionRefusedError:
        return "refused"
    except TimeoutError:
        return "closed"
    except OSError as error:
        return str(error)


def wanted_result(name, words):
    wanted = "closed"
    for word in words:
        who, _, what = word.partition("=")
        if name.startswith(who):
            wanted = what or "open"
    return wanted


def probe(sources):
    rows = [line.split() for line in sys.stdin if line.strip()]
    wrong = []

    def check(row, name, source, target):
        protocol, port, *words = row
        wanted = wanted_result(name, words)
        got = result(protocol, source, target, port, wanted)
        if got != wanted:
            wrong.append(f"{protocol} {port} from {name}: {got}, it should be: {wanted}")

    with concurrent.futures.ThreadPoolExecutor(200) as pool:
        jobs = [pool.submit(check, row, *text.split("=")) for row in rows for text in sources]
        for job in jobs:
            job.result()
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong or not rows else 0


def hold(source, target, port):
    with endpoint(socket.SOCK_STREAM, source, OPEN_LIMIT) as end:
        end.connect((target, int(port)))
        stream = end.makefile("rwb")
        stream.readline()
        print("held", flush=True)
        sys.stdin.readline()
        stream.write(b"still there\n")
        stream.flush()
        try:
            print("open" if stream.readline() == b"still there\n" else "closed")
        except TimeoutError:
            print("closed")


verb, *arguments = sys.argv[1:]
if verb == "serve":
    asyncio.run(serve([int(port) for port in arguments]))
elif verb == "probe":
    sys.exit(probe(arguments))
elif verb == "hold":
    hold(*arguments)
else:
    sys.exit(__doc__)
