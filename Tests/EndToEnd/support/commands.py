"""Runs the commands of the tray."""

import json
import os
import pty
import select
import subprocess
import time


class Commands:
    """`zephyl-tray VERB` in the environment of a world."""

    def __init__(self, world):
        self.world = world
        self.program = world.prefix / "bin" / "zephyl-tray"

    def run(self, *arguments, text="", **environment):
        return subprocess.run([self.program, *arguments], input=text, capture_output=True, text=True,
                              env=self.world.environment | environment, timeout=60)

    def json(self, *arguments):
        answer = self.run(*arguments, "--json")
        assert answer.stdout, answer.stderr
        return json.loads(answer.stdout)

    def attention(self):
        """Returns the codes of `attention`."""
        return [notice["code"] for notice in self.json("status")["attention"]]

    def start(self, *arguments):
        """Starts a command that keeps running, and returns its process."""
        return subprocess.Popen([self.program, *arguments], env=self.world.environment,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, text=True)

    def type(self, *arguments, answers):
        """Runs a command on a terminal, types answers when texts appear, and returns the status
        and the output on the terminal."""
        process, terminal = pty.fork()
        if process == 0:
            os.execve(self.program, [str(self.program), *arguments], self.world.environment)
        shown = ""
        waiting = list(answers)
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline:
            if waiting and waiting[0][0] in shown:
                os.write(terminal, waiting.pop(0)[1].encode())
            if not select.select([terminal], [], [], 0.05)[0]:
                continue
            try:
                piece = os.read(terminal, 65536)
            except OSError:  # the command has ended
                break
            shown += piece.decode(errors="replace")
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), shown
