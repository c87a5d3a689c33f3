"""An HTTP server that imitates an agent, with answers set by the test."""

import http.server
import json
import threading
import time

HEALTHY_ACTIVITY = {"busy": False, "inFlight": 0, "counters": {}, "recent": [], "indexing": []}


class ScriptedAgent:
    """Answers on its own port. `answers` maps a path to bytes (sent with 200) or to a function that
    gets the request's handler."""

    def __init__(self, port=0, keeps_connections=False):
        agent = self
        self.requests = []  # (monotonic time, path)
        self.answers = {
            "/api/status": json.dumps({"state": "disconnected"}).encode(),
            "/api/roots": json.dumps({"roots": []}).encode(),
            "/api/activity": json.dumps(HEALTHY_ACTIVITY).encode(),
        }

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                agent.requests.append((time.monotonic(), self.path))
                answer = agent.answers.get(self.path)
                if callable(answer):
                    try:
                        answer(self)
                    except OSError:
                        pass
                    self.close_connection = True
                    return
                self.reply(200 if answer else 404, answer or b"{}")

            def reply(self, status, body):
                self.send_response(status)
                self.send_header("Content-Length", str(len(body)))
                if not keeps_connections:
                    self.send_header("Connection", "close")
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        http.server.ThreadingHTTPServer.daemon_threads = True
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
        self.port = self.server.server_port
        self.closing = threading.Event()
        self.thread = threading.Thread(target=self.server.serve_forever, args=(0.02,))
        self.thread.start()

    def hang(self, _handler):
        self.closing.wait(60)

    def count(self, path):
        return sum(1 for _, asked in self.requests if asked == path)

    def close(self):
        self.closing.set()
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()
