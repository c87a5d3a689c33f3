"""A publisher of releases, with the packaging tool and its own keys, a server on loopback that
serves them (or misbehaves), and direct runs of the updater program."""

import io
import json
import pathlib
import shutil
import subprocess
import tarfile
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

from support.tray import REPOSITORY, SANDBOX, installed

SIGN = REPOSITORY / "Packaging" / "sign-update"
FEED = "/appcast.xml"
ARCHIVE = "/zephyl.tar.gz"


def sign(*arguments):
    return subprocess.run([SIGN, *map(str, arguments)], check=True, capture_output=True,
                          text=True).stdout


class FeedServer:
    """Answers requests with bytes or by a function."""

    def __init__(self):
        self.answers = {}
        self.requests = []
        server = self

        class Handler(BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                server.requests.append(self.path)
                answer = server.answers.get(self.path)
                try:
                    if callable(answer):
                        answer(self)
                    else:
                        self.reply(200 if answer is not None else 404, answer or b"")
                except (BrokenPipeError, ConnectionResetError):
                    pass
                self.close_connection = True

            def reply(self, status, body=b"", **headers):
                self.send_response(status)
                for name, value in headers.items():
                    self.send_header(name, value)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        self._server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self._server.daemon_threads = True
        self._server.block_on_close = False
        self.url = f"http://127.0.0.1:{self._server.server_port}"
        self.ending = threading.Event()
        self._thread = threading.Thread(target=self._server.serve_forever, args=(0.01,))
        self._thread.start()

    def close(self):
        self.ending.set()
        self._server.shutdown()
        self._thread.join()
        self._server.server_close()


def rewrite_information(prefix, **values):
    path = prefix / "share" / "zephyl-tray" / "Info.json"
    information = json.loads(path.read_text())
    information.update(values)
    path.write_text(json.dumps({key: value for key, value in information.items()
                                if value is not None}))


def version_at(prefix):
    """Returns the version in an installation's Info.json."""
    return json.loads((prefix / "share" / "zephyl-tray" / "Info.json").read_text())[
        "CFBundleShortVersionString"]


def note(updater, name):
    """Returns a note in the state directory, None if it does not exist."""
    path = updater.directory / name
    return json.loads(path.read_text()) if path.exists() else None


def set_up(world, **values):
    """Stores settings for the tray of a world, and returns the path of the file."""
    path = world.home / ".config" / "com.zephyl.tray" / "defaults.json"
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps(values))
    return path


class Publisher:
    """A publisher of releases, with a key, a server and a feed."""

    def __init__(self, world):
        self.world = world
        self.server = FeedServer()
        self.directory = world.root / "releases"
        self.directory.mkdir()
        self.key = self.directory / "key.pem"
        self.public_key = sign("new-key", self.key).strip()
        self.feed_url = self.server.url + FEED

    def other_key(self, name="other.pem"):
        return self.directory / name, sign("new-key", self.directory / name).strip()

    def install(self, version="1.0"):
        """Installs a tray in the world's prefix that updates itself from this publisher."""
        prefix = self.world.prefix
        self.world.install("updater")
        # Independent of the umask, because a group-writable installation is not updated.
        for path in [prefix, *prefix.rglob("*")]:
            if not path.is_symlink():
                path.chmod(path.stat().st_mode & ~0o022)
        rewrite_information(prefix, CFBundleShortVersionString=version, SUFeedURL=self.feed_url,
                            SUPublicEDKey=self.public_key)

    def copy(self, version, name=None, program=None):
        """Creates an installation of another version; `program` replaces the tray."""
        target = self.directory / (name or f"prefix-{version}")
        shutil.copytree(self.world.prefix, target, symlinks=True)
        rewrite_information(target, CFBundleShortVersionString=version)
        agent = target / "share" / "zephyl-tray" / "agent"
        for link in agent.iterdir():
            if link.is_symlink():
                link.unlink()
                link.write_text(f'#!/bin/sh\nexec {SANDBOX}/{link.name} "$@"\n')
                link.chmod(0o755)
        if program is not None:
            tray = target / "bin" / "zephyl-tray"
            tray.write_text(program)
            tray.chmod(0o755)
        return target

    def pack(self, prefix, name="zephyl.tar.gz"):
        archive = self.directory / name
        sign("pack", prefix, archive)
        return archive

    def publish(self, archive, keys=None, feed_keys=None, change=None):
        """Adds an archive to the server and its item to the feed. `change` modifies the feed
        before it is signed."""
        item = sign("item", archive, self.server.url + ARCHIVE, *(keys or [self.key]))
        self.publish_items(change(item) if change else item, feed_keys or keys)
        self.server.answers[ARCHIVE] = archive.read_bytes()

    def publish_items(self, items, keys=None):
        feed = self.directory / "appcast.xml"
        feed.write_text('<?xml version="1.0" encoding="utf-8"?>\n'
                        f'<rss version="2.0"><channel>\n{items}</channel></rss>\n')
        sign("feed", feed, *(keys or [self.key]))
        self.server.answers[FEED] = feed.read_bytes()

    def close(self):
        self.server.close()


def write_archive(path, entries):
    """Creates an archive of any entries, even invalid ones: (name, contents or a TarInfo)."""
    with tarfile.open(path, "w:gz", format=tarfile.USTAR_FORMAT, compresslevel=1) as archive:
        for name, contents in entries:
            if isinstance(contents, tarfile.TarInfo):
                contents.name = name
                archive.addfile(contents)
                continue
            entry = tarfile.TarInfo(name)
            entry.size = len(contents)
            entry.mode = 0o755
            archive.addfile(entry, io.BytesIO(contents))
    return path


class Updater:
    """Runs zephyl-tray-updater directly."""

    def __init__(self, world):
        self.world = world
        self.program = installed("updater") / "libexec/zephyl-tray/zephyl-tray-updater"
        self.prefix = world.prefix
        self.user = None  # runs the updater as another user
        self.feed_date = None  # the date of the feed in the last check

    def start(self, command):
        (name, values), = command.items()
        process = subprocess.Popen([self.program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, env=self.world.environment,
                                   user=self.user)
        line = json.dumps({name: {"prefix": str(self.prefix), **values}})
        process.stdin.write(line.encode() + b"\n")
        process.stdin.flush()
        return process

    def run(self, name, **values):
        """Runs a command and returns its reports. The input stays open until the end."""
        process = self.start({name: values})
        try:
            output = process.stdout.read()
            process.wait(20)
        finally:
            process.kill()
            process.wait()
            for end in (process.stdin, process.stdout, process.stderr):
                end.close()
        return [json.loads(line) for line in output.splitlines()]

    def check(self, **values):
        values = {"channels": [], "skip": [], "rolloutGroup": 0, "userInitiated": True, **values}
        report, = self.run("check", **values)
        if "upToDate" in report:
            self.feed_date = report["upToDate"]["feedDate"]
            return {"upToDate": report["upToDate"]["version"]}
        if "found" in report:
            self.feed_date = report["found"].pop("feedDate")
        return report

    def download(self, offer, **values):
        return self.run("download", offer=offer, **values)[-1]

    def install(self, version):
        report, = self.run("install", version=version)
        return report

    @property
    def directory(self):
        return self.prefix.parent / f".{self.prefix.name}.updates"


def snapshot(directory):
    """Returns paths, kinds, modes and contents of everything below a directory."""
    found = {}
    for path in sorted(pathlib.Path(directory).rglob("*")):
        kind = "link" if path.is_symlink() else "directory" if path.is_dir() else "file"
        contents = (str(path.readlink()) if kind == "link" else
                    path.read_bytes() if kind == "file" else b"")
        found[str(path.relative_to(directory))] = (kind, path.lstat().st_mode, contents)
    return found
