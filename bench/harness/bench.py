"""What every row is given: where the programs are, how thorough to be, and places to work in."""
import contextlib
import json
import os
import shutil
import statistics
import tempfile

from harness.processes import output_of

MIB = 1 << 20


class Bench:
    def __init__(self, root, quick, full):
        self.root = root
        self.quick = quick
        self.full = full
        self.build = os.path.join(root, "build", "dev" if quick else "bench")

    def program(self, name):
        return os.path.join(self.build, "bin", name)

    def amount(self, usual, quick):
        """How much work to measure."""
        return quick if self.quick else usual

    def size(self, usual, quick, full):
        """The same, of what --full has more of."""
        return full if self.full and not self.quick else self.amount(usual, quick)

    @property
    def turns(self):
        return self.amount(3, 1)

    @property
    def load_seconds(self):
        """How long one turn of a server under load lasts."""
        return self.amount(3, 1)

    @contextlib.contextmanager
    def memory_folder(self, mib=1024):
        """A folder in memory, or on the disk where there is no room for that; it vanishes."""
        shm = "/dev/shm"
        roomy = os.access(shm, os.W_OK) and shutil.disk_usage(shm).free > 2 * mib * MIB
        with tempfile.TemporaryDirectory(prefix="tarn-bench-", dir=shm if roomy else None) as folder:
            yield folder

    @contextlib.contextmanager
    def disk_folder(self):
        """A folder on the disk that the build is on; it vanishes."""
        with tempfile.TemporaryDirectory(prefix="tarn-bench-", dir=self.build) as folder:
            yield folder

    def in_turns(self, *works, turns=None):
        """Calls each work in turn, several times; gives the results of each work as a list of its own."""
        rounds = [[work() for work in works] for _ in range(turns or self.turns)]
        return [list(results) for results in zip(*rounds)]

    def google(self, program, name, seconds=2, **environment):
        """The counters of one benchmark of a program in bench/, whose names begin with `name`."""
        text = output_of(self.program(program), f"--benchmark_filter=^{name}", "--benchmark_format=json",
                         f"--benchmark_min_time={self.amount(seconds, 0.01)}", env={**os.environ, **environment})
        return json.loads(text)["benchmarks"]


def median_ratio(ours, theirs):
    """Of pairs that were measured in turn."""
    return statistics.median(one / other for one, other in zip(ours, theirs))


median = statistics.median
