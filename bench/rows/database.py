"""tarnd over PostgreSQL: beside SQLite, with the database further away, and two processes over one."""
import contextlib
import os
import subprocess
import urllib.parse

from harness.bench import Bench, median, median_ratio
from harness.processes import Process
from harness.result import Line
from harness.service import (add_users, load_command, load_options, load_result, new_prefix, reads, running,
                             service, uploads)

CONNECTIONS = 16
USERS = [f"user{number}" for number in range(CONNECTIONS)]  # writes of one user wait for each other
_NEAR = 500  # microseconds each way: a round trip takes one millisecond longer
_FAR = 2500  # so far that waiting, and not the processor, is what takes the time


@contextlib.contextmanager
def postgres(bench):
    """@return the URL of an empty database on a server of its own"""
    script = os.path.join(bench.root, "scripts", "with-postgres")
    # `cat` lasts until its input ends: when this context is left, or this program is gone.
    command = [script, "sh", "-c", 'echo "$TARN_TEST_DATABASE"; cat >/dev/null']
    with Process(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as server:
        try:
            yield server.first_line()
        finally:
            server.popen.stdin.close()
            server.popen.wait(30)


@contextlib.contextmanager
def delayed(bench, database, each_way=_NEAR):
    """@return the URL of the same database, further away"""
    parts = urllib.parse.urlsplit(database)
    command = [bench.program("delay_proxy"), str(parts.port), str(each_way)]
    with Process(*command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as proxy:
        port = proxy.first_line()
        yield parts._replace(netloc=f"{parts.username}@127.0.0.1:{port}").geturl()


def over_postgres(bench: Bench):
    """Uploads and reads of 4 KiB over PostgreSQL and over SQLite, contents in memory."""
    with bench.memory_folder() as folder, postgres(bench) as database, \
            service(bench, os.path.join(folder, "p"), USERS, database) as ours, \
            service(bench, os.path.join(folder, "s"), USERS) as theirs:
        yield _upload_line(bench, "4 KiB uploads over PostgreSQL, 16 clients", "over SQLite", 0.8, ours, theirs)
        yield _read_line(bench, "4 KiB reads over PostgreSQL, 16 clients", "over SQLite", 0.8, ours, theirs)


def distant_database(bench: Bench):
    """The same store, through a proxy that holds back what goes to the database and what comes from it."""
    with bench.memory_folder() as folder, postgres(bench) as database, delayed(bench, database) as distant:
        tokens = add_users(bench, folder, USERS, database)
        with running(bench, folder, tokens, distant) as ours, running(bench, folder, tokens, database) as theirs:
            yield _upload_line(bench, "uploads, the database 1 ms away", "without the delay", 0.7, ours, theirs)
            yield _read_line(bench, "reads, the database 1 ms away", "without the delay", 0.7, ours, theirs)


def _upload_line(bench, work, yardstick, aim, ours, theirs):
    return _line(work, yardstick, aim, *bench.in_turns(lambda: uploads(bench, ours, CONNECTIONS)[0],
                                                       lambda: uploads(bench, theirs, CONNECTIONS)[0]))


def _read_line(bench, work, yardstick, aim, ours, theirs):
    count = bench.amount(400, 60)
    for stored in (ours, theirs):
        prefix = _read_prefix(stored)
        uploads(bench, stored, CONNECTIONS, count=count, prefix=prefix)
    return _line(work, yardstick, aim,
                 *bench.in_turns(lambda: reads(bench, ours, CONNECTIONS, _read_prefix(ours), count)[0],
                                 lambda: reads(bench, theirs, CONNECTIONS, _read_prefix(theirs), count)[0]))


def _read_prefix(stored):
    return f"/read-{stored.process.popen.pid}-"


def several_processes(bench: Bench):
    """Sixteen writers at one tarnd, and as many at each of several over the same database. It is far away, or all
    would only wait for the processor that they share here. Four get more users: sixteen of them would have each
    other's lock to wait for."""
    users = [f"user{number}" for number in range(4 * CONNECTIONS)]
    with bench.memory_folder() as folder, postgres(bench) as database, contextlib.ExitStack() as stack:
        distant = stack.enter_context(delayed(bench, database, _FAR))
        tokens = add_users(bench, folder, users, database)
        services = [stack.enter_context(running(bench, folder, tokens, distant)) for _ in range(4)]
        for word, count, writing, aim in (("two", 2, CONNECTIONS, 1.7), ("four", 4, len(users), 2.5)):
            together, alone = bench.in_turns(
                lambda used=services[:count], number=writing: _uploads_at_all(bench, used, users[:number]),
                lambda number=writing: _uploads_at_all(bench, services[:1], users[:number]))
            yield _line(f"{word} tarnd over PostgreSQL, writers of {writing} users", "one tarnd", aim, together, alone)


def _uploads_at_all(bench, services, users):
    """@return uploads a second of all of them together"""
    loads = []
    with contextlib.ExitStack() as stack:
        for at in services:
            sessions = {user: at.sessions[user] for user in users}
            options = load_options("put", sessions, new_prefix(), 4096, 0)
            command = load_command(bench, at.url, CONNECTIONS, options)
            loads.append(stack.enter_context(Process(*command, stdout=subprocess.PIPE, text=True)))
        return sum(load_result(one.popen.communicate()[0])[0] for one in loads)


def _line(work, yardstick, aim, ours, theirs):
    return Line(work, yardstick, "rate", median_ratio(ours, theirs), aim,
                f"{median(ours):,.0f} and {median(theirs):,.0f} a second")
