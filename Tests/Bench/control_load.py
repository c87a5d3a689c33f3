#!/usr/bin/env python3
"""Measures the throughput of the control API and compares it with a bare loop in C and nginx.

    Tests/Bench/control_load.py [SECONDS] [--soak REQUESTS]

Sends GET /status, which the tray answers on its main thread, with wrk: 8 connections at a time, one
request on each. Each server is measured in five interleaved runs of SECONDS (default: 4). Prints the
medians. The bare loop accepts a connection, reads, writes the same answer and closes it. nginx runs
one worker without keep-alive. With --soak, sends at least REQUESTS requests to the tray instead and
prints its resident memory and number of descriptors before and after. Needs wrk, gcc and nginx.
"""

import argparse
import pathlib
import re
import socket
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from support.control_api import TOKEN_HEADER, Window  # noqa: E402
from support.scripted_agent import ScriptedAgent  # noqa: E402
from support.tray import Tray, World, eventually, free_port  # noqa: E402

RUNS, CONNECTIONS = 5, 8
ANSWER = '{"available":false,"enrolled":false,"running":false}'

BARE_LOOP = r"""
#include <arpa/inet.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>
static const char answer[] =
    "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: %d\r\n"
    "Connection: close\r\n\r\n%s";
int main(int argc, char** argv) {
  struct sockaddr_in at = {.sin_family = AF_INET, .sin_port = htons(atoi(argv[1])),
                           .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  char request[16384];
  int on = 1, listener = socket(AF_INET, SOCK_STREAM, 0);
  setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(listener, (struct sockaddr*)&at, sizeof at) || listen(listener, SOMAXCONN)) return 1;
  for (;;) {
    int peer = accept(listener, 0, 0);
    if (peer < 0) continue;
    if (read(peer, request, sizeof request) > 0 && write(peer, answer, sizeof answer - 1)) {}
    close(peer);
  }
}
"""

NGINX = """daemon off; worker_processes 1; pid {root}/nginx.pid; error_log stderr crit;
events {{ worker_connections 512; }}
http {{ access_log off; keepalive_timeout 0; server {{ listen 127.0.0.1:{port};
  location / {{ default_type application/json; return 200 '{answer}'; }} }} }}
"""


def start_bare_loop(root, port):
    escaped = ANSWER.replace('"', r'\"')
    source = root / "bare.c"
    source.write_text(BARE_LOOP.replace("%d", str(len(ANSWER))).replace("%s", escaped))
    subprocess.run(["gcc", "-O2", "-o", root / "bare", source], check=True)
    return subprocess.Popen([root / "bare", str(port)])


def start_nginx(root, port):
    configuration = root / "nginx.conf"
    configuration.write_text(NGINX.format(root=root, port=port, answer=ANSWER))
    return subprocess.Popen(["nginx", "-c", configuration], stderr=subprocess.DEVNULL)


def is_listening(port):
    """Returns whether a server accepts connections on the port."""
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


def load(port, token, seconds):
    """Returns the requests per second and the 99th percentile of the latency in milliseconds."""
    report = subprocess.run(
        ["wrk", "-t1", f"-c{CONNECTIONS}", f"-d{seconds}s", "--latency", "-H", "Connection: close",
         "-H", f"{TOKEN_HEADER}: {token}", f"http://127.0.0.1:{port}/status"],
        check=True, capture_output=True, text=True).stdout
    assert "Non-2xx" not in report and "Socket errors" not in report, report
    rate = float(re.search(r"Requests/sec:\s+([\d.]+)", report)[1])
    value, unit = re.search(r"99%\s+([\d.]+)(us|ms|s)", report).groups()
    return rate, float(value) * {"us": 0.001, "ms": 1, "s": 1000}[unit]


def footprint(pid):
    """Returns the resident memory in kB and the number of open descriptors."""
    memory = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text()
    return (int(re.search(r"^Rss:\s+(\d+)", memory, re.M)[1]),
            len(list(pathlib.Path(f"/proc/{pid}/fd").iterdir())))


def compare(ports, token, seconds):
    """Loads the servers in turn and prints the medians of each."""
    results = {name: [] for name in ports}
    for _ in range(RUNS):
        for name, port in ports.items():
            results[name].append(load(port, token, seconds))
    bare = statistics.median(rate for rate, _ in results["bare loop"])
    for name, runs in results.items():
        rate = statistics.median(rate for rate, _ in runs)
        latency = statistics.median(latency for _, latency in runs)
        print(f"{name:10} {rate:8.0f} requests/s  {100 * rate / bare:4.0f} %  p99 {latency:.2f} ms")


def soak(tray, port, token, count):
    """Sends at least `count` requests and prints the tray's footprint before and after."""
    load(port, token, 1)
    before, sent, begin = footprint(tray.pid), 0, time.monotonic()
    while sent < count:
        rate, _ = load(port, token, 10)
        sent += int(10 * rate)
    time.sleep(1)
    print(f"{sent} requests in {time.monotonic() - begin:.0f} s, resident memory in kB "
          f"and descriptors {before} before and {footprint(tray.pid)} after")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("seconds", type=int, nargs="?", default=4)
    parser.add_argument("--soak", type=int, metavar="REQUESTS")
    options = parser.parse_args()
    world = World()
    agent = ScriptedAgent(world.agent_port)
    agent.answers["/api/events"] = agent.hang
    window = Window(world)
    tray = Tray(world)
    ports = {"bare loop": free_port(), "nginx": free_port(), "tray": world.control_port}
    references = []
    try:
        token = window.token
        references = [start_bare_loop(world.root, ports["bare loop"]),
                      start_nginx(world.root, ports["nginx"])]
        for port in ports.values():
            eventually(lambda port=port: is_listening(port), what="a listening server")
        if options.soak:
            soak(tray, world.control_port, token, options.soak)
        else:
            compare(ports, token, options.seconds)
    finally:
        for process in references:
            process.terminate()
            process.wait()
        tray.stop()
        tray.close()
        agent.close()
        world.remove()


if __name__ == "__main__":
    main()
