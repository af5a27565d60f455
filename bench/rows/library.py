"""The client library, beside the libraries it stands on."""
from harness.bench import Bench
from harness.result import Line
from harness.yardsticks import nginx


def futures(bench: Bench):
    """A promise, a continuation, set and get; and a chain of ten."""
    for links, work in ((1, "promise, then, set, get"), (10, "the same with a chain of ten")):
        found = bench.google("future_bench", f"continuations/{links}/")[0]
        yield Line(work, "boost::future, launch::sync", "time", found["time ratio"], 0.42,
                   rates(found, "tarn chains/s", "boost chains/s"))


def replies(bench: Bench):
    """Parsing and reading a reply of one record, and listings."""
    found = bench.google("reply_bench", "aReplyOfOneRecord")[0]
    yield Line("parse and read a reply of one record", "a default DOMParser", "time", found["time ratio"], 0.35,
               rates(found, "read replies/s", "parsed alone replies/s"))
    for entries in bench.amount((1_000, 10_000, 100_000), (1_000,)):
        found = bench.google("reply_bench", f"entriesOfAListing/{entries}/", seconds=3)[0]
        yield Line(f"parse and read a listing of {entries:,}", "a default DOMParser", "time", found["time ratio"], 1.10,
                   rates(found, "read entries/s", "parsed alone entries/s"))


_ANSWERS = {
    "/service/v1/login": "<Response><TarnSessionId>0123456789abcdef</TarnSessionId>"
                         "<MinutesBeforeRelogin>60</MinutesBeforeRelogin></Response>",
    "/service/v1/ping": "<Response><Value>pong</Value></Response>",
    "/service/v1/files/": "x" * 200,
}


def requests(bench: Bench):
    """Small requests against nginx, whose answers are fixed: several in flight."""
    with bench.memory_folder() as folder, nginx(folder, _ANSWERS) as server:
        for operation, aim in (("readFile", 0.80), ("ping", 0.65)):
            for in_flight in (16, 64):
                found = bench.google("request_bench", f"{operation}/{in_flight}/", TARN_BENCH_URL=server.url)[0]
                work = f"{operation}, {in_flight} in flight"
                yield Line(work, "libcurl multi against the same nginx", "rate", 1 / found["time ratio"], aim,
                           rates(found, "tarn requests/s", "libcurl requests/s"))
                if operation == "readFile":
                    yield Line(work + ": processor", "the same", "processor", found["processor ratio"], 1.35)


def latency(bench: Bench):
    """One blocking request after another."""
    with bench.memory_folder() as folder, nginx(folder, _ANSWERS) as server:
        found = bench.google("request_bench", "blocking", TARN_BENCH_URL=server.url)[0]
        yield Line("one blocking readFile after another", "libcurl easy against the same nginx", "time",
                   found["time ratio"], 1.5, rates(found, "tarn requests/s", "libcurl requests/s"))


def rates(found, ours, theirs):
    return f"{found[ours]:,.0f} and {found[theirs]:,.0f} a second"
