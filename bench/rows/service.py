"""tarnd under load from wrk."""
from harness.bench import Bench, median, median_ratio
from harness.processes import Failed, seconds_of
from harness.result import Line
from harness.service import requests, service, uploads
from harness.yardsticks import nginx

CONNECTIONS = 16


def small_requests(bench: Bench):
    """Ping, a file of 4 KiB and attributes, each beside nginx with a file of the same bytes."""
    with bench.memory_folder() as folder, service(bench, folder) as tarnd, nginx(folder) as yard:
        tarnd.store("/file", b"x" * 4096)
        for work, path, aim, limit in (("ping", tarnd.path("ping"), 0.40, 50),
                                       ("a 4 KiB file", tarnd.path("files", "/file"), 0.30, 80),
                                       ("attributes", tarnd.path("filesystem", "/file"), 0.30, 70)):
            yard.store("file", tarnd.request("GET", path))
            ours, theirs = bench.in_turns(
                lambda path=path: _under_load(bench, tarnd, path, tarnd.session_header()),
                lambda: _under_load(bench, yard, "/file", {}))
            our_rates, our_costs = zip(*ours)
            their_rates, their_costs = zip(*theirs)
            yield Line(f"tarnd: {work}, {CONNECTIONS} connections", "nginx with a static file", "rate",
                       median_ratio(our_rates, their_rates), aim,
                       f"{median(our_rates):,.0f} and {median(their_rates):,.0f} a second")
            yield Line(f"tarnd: {work}: processor per request", "", "µs", median(our_costs), limit,
                       f"nginx: {median(their_costs):.0f} µs")


def _under_load(bench, server, path, headers):
    """@return requests a second, and microseconds of processor for each"""
    before = server.processor_seconds()
    rate, count = requests(bench, server.url, path, CONNECTIONS, headers)
    return rate, (server.processor_seconds() - before) * 1e6 / count


def durable_uploads(bench: Bench):
    """Uploads of 4 KiB that are on the disk when they are answered."""
    with bench.disk_folder() as folder, service(bench, folder) as tarnd:
        many, one = bench.in_turns(lambda: uploads(bench, tarnd, 16)[0], lambda: uploads(bench, tarnd, 1)[0])
        yield Line("durable uploads on a disk, 16 in flight", "the same, 1 in flight", "rate", median_ratio(many, one),
                   5, f"{median(many):,.0f} and {median(one):,.0f} a second")


def removal(bench: Bench):
    """A folder of many files, removed."""
    files = bench.amount(40_000, 500)
    with bench.memory_folder() as folder, service(bench, folder) as tarnd:
        tarnd.tarn("mkdir", "/many")
        stored = uploads(bench, tarnd, CONNECTIONS, size=64, count=files, prefix="/many/")[1]
        if stored < files:
            raise Failed(f"only {stored:,} of {files:,} files were stored in two minutes")
        seconds = seconds_of(bench.program("tarn"), "rm", "-r", "/many", env=tarnd.environment())
        yield Line(f"rm -r of {files:,} files", "", "s", seconds, 2)
