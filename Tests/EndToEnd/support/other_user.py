"""Programs of another user. Requires root."""

import json
import os
import shutil
import subprocess
import sys

import pytest

USER = 54321

# Answers like a healthy agent, and prints the first line of each request.
AGENT = """
import http.server, json, sys
answers = json.loads(sys.argv[2])
class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        print(self.requestline, flush=True)
        body = json.dumps(answers.get(self.path, {})).encode()
        self.send_response(200 if self.path in answers else 404)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)
    do_POST = do_PATCH = do_DELETE = do_GET
    def log_message(self, *_):
        pass
server = http.server.HTTPServer(("127.0.0.1", int(sys.argv[1])), Handler)
print("listening", flush=True)
server.serve_forever()
"""

HEALTHY = {
    "/api/status": {"state": "disconnected"},
    "/api/roots": {"roots": []},
    "/api/activity": {"busy": False, "inFlight": 0, "counters": {}, "recent": [], "indexing": []},
}


def skip_unless_root():
    if os.geteuid() != 0 or shutil.which("setpriv") is None:
        pytest.skip("needs root and setpriv, to run a program as another user")


def as_other_user(*command):
    """Returns a command line that runs a command as another user, without root's rights."""
    return ["setpriv", f"--reuid={USER}", f"--regid={USER}", "--clear-groups", *map(str, command)]


class ForeignAgent:
    """Another user's program on the agent's port."""

    def __init__(self, port):
        self.process = subprocess.Popen(
            as_other_user(sys.executable, "-c", AGENT, port, json.dumps(HEALTHY)),
            stdout=subprocess.PIPE, text=True, cwd="/")
        assert self.process.stdout.readline() == "listening\n"

    def close(self):
        """Ends the program and returns the requests that it has received."""
        if self.process.poll() is None:
            self.process.kill()
        requests = self.process.stdout.read().splitlines()
        self.process.wait()
        self.process.stdout.close()
        return requests
