"""tarnd, and the ways to use it: the command line, plain HTTP, and load from wrk."""
import contextlib
import itertools
import json
import os
import re
import subprocess
import urllib.parse
import urllib.request

from harness.processes import Failed, Process, output_of


class Service:
    """A tarnd of its own, with users and a session for each."""

    def __init__(self, bench, process, folder, tokens, url):
        self.bench = bench
        self.process = process
        self.folder = folder
        self.url = url
        self.tokens = tokens
        self.sessions = {user: self._login(user) for user in tokens}
        self.user = next(iter(tokens))

    def environment(self):
        """For `tarn` as the first user."""
        home = os.path.join(self.folder, "home")
        os.makedirs(home, exist_ok=True)
        own = {name: value for name, value in os.environ.items() if not name.startswith(("TARN_", "XDG_"))}
        return {**own, "HOME": home, "TARN_ENDPOINT": self.url, "TARN_USER": self.user,
                "TARN_TOKEN": self.tokens[self.user]}

    def tarn(self, *arguments):
        return output_of(self.bench.program("tarn"), *arguments, env=self.environment())

    def path(self, route, item="", user=None, **parameters):
        """What follows the URL of the service in a request of a user."""
        parameters = {"clientString": "bench", "clientType": "desktop", "bucket": user or self.user, **parameters}
        return f"/service/v1/{route}{item}?{urllib.parse.urlencode(parameters)}"

    def session_header(self, user=None):
        return {"x-qz-tarn-session-id": self.sessions[user or self.user]}

    def request(self, method, path, headers=None, body=None):
        asked = urllib.request.Request(self.url + path, body, headers or self.session_header(), method=method)
        with urllib.request.urlopen(asked, timeout=60) as reply:
            return reply.read()

    def store(self, item, content):
        self.request("PUT", self.path("files", item, createMode="CREATE", createNewVersion="false"),
                     {**self.session_header(), "Content-Type": "application/octet-stream"}, content)

    def _login(self, user):
        reply = self.request("GET", "/service/v1/login?clientString=bench&clientType=desktop",
                             {"x-qz-authentication-token": self.tokens[user]})
        return re.search(rb"<TarnSessionId>(.*)</TarnSessionId>", reply)[1].decode()

    def processor_seconds(self):
        return self.process.processor_seconds()


def _where(folder, database):
    return ["--data", os.path.join(folder, "data")] + (["--database", database] if database else [])


def add_users(bench, folder, users, database=None):
    """@return their tokens"""
    os.makedirs(os.path.join(folder, "data"), exist_ok=True)
    where = _where(folder, database)
    return {user: output_of(bench.program("tarnd"), "user", "add", user, *where).strip() for user in users}


@contextlib.contextmanager
def running(bench, folder, tokens, database=None):
    """A tarnd over a folder whose accounts are there."""
    command = [bench.program("tarnd"), "serve", *_where(folder, database), "--listen", "127.0.0.1:0"]
    with Process(*command, stdout=subprocess.PIPE) as process:
        url = json.loads(process.first_line())["url"]
        yield Service(bench, process, folder, tokens, url)


@contextlib.contextmanager
def service(bench, folder, users=("alice",), database=None):
    """A tarnd over a new store in `folder`."""
    tokens = add_users(bench, folder, users, database)
    with running(bench, folder, tokens, database) as started:
        yield started


_runs = itertools.count()


def load_options(action, sessions, prefix, size, count):
    users = [f"{user}:{session}" for user, session in sessions.items()]
    return [action, prefix, str(size), str(count), *users]


def new_prefix():
    """Of files that nobody has stored yet."""
    return f"/run-{next(_runs)}-"


def uploads(bench, service, connections, size=4096, count=0, prefix=None):
    """Uploads a second of new files by all users of the service, for a while or `count` of them."""
    options = load_options("put", service.sessions, prefix or new_prefix(), size, count)
    return load(bench, service.url, connections, options, seconds=110 if count else None)


def requests(bench, url, path, connections, headers=None):
    """Requests a second for one path, and how many there were."""
    wrapped = [f"-H{name}: {value}" for name, value in (headers or {}).items()]
    return load(bench, url + path, connections, ["get"], wrapped)


def reads(bench, service, connections, prefix, count):
    """Reads a second of what `uploads` stored under the same prefix. The last few are left out: they may have
    been under way when the load ended."""
    options = load_options("read", service.sessions, prefix, 0, count - 40)
    return load(bench, service.url, connections, options)


def load_command(bench, url, connections, options, more=(), seconds=None):
    script = os.path.join(bench.root, "bench", "load.lua")
    return ["wrk", "-t1", f"-c{connections}", f"-d{seconds or bench.load_seconds}s", "--timeout=60s", *more,
            "-s", script, url, "--", *options]


def load(bench, url, connections, options, more=(), seconds=None):
    return load_result(output_of(*load_command(bench, url, connections, options, more, seconds)))


def load_result(text):
    """@return requests a second, and how many"""
    result = json.loads(text[text.rindex("{"):])
    if result["refused"] or result["broken"]:
        raise Failed(f"of {result['requests']} requests {result['refused']} were refused, {result['broken']} broke")
    return result["requests"] / result["seconds"], result["requests"]
