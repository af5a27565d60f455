"""The command line with a tarnd over data in memory, beside rclone and curl."""
import os
import shutil
import time

from harness.bench import MIB, Bench, median, median_ratio
from harness.processes import Failed, memory_of, seconds_of
from harness.result import Line
from harness.service import service, uploads
from harness.yardsticks import rclone


def make_tree(folder, files, size=4096):
    os.makedirs(folder)
    for number in range(files):
        with open(os.path.join(folder, f"file-{number}"), "wb") as file:
            file.write(os.urandom(size))
    return folder


def make_file(path, size):
    """Of bytes that no file system can leave out."""
    block = os.urandom(min(size, MIB))
    with open(path, "wb") as file:
        for start in range(0, size, len(block)):
            file.write(block[:size - start])
    return path


def many_files(bench: Bench):
    """A folder of small files up and down, with what both programs do when not told otherwise."""
    count = bench.amount(2_000, 50)
    with bench.memory_folder() as folder, service(bench, folder) as tarnd, rclone("sftp", folder) as yard:
        source = make_tree(os.path.join(folder, "source"), count)
        ours, theirs = tarnd.environment(), yard.environment
        names = iter(range(1000))
        turns = bench.amount(5, 1)

        def put():
            name = next(names)
            return seconds_of(bench.program("tarn"), "put", "-r", source + "/", f"/{name}", env=ours)

        def rclone_put():
            return seconds_of("rclone", "copy", source, yard.place(next(names)), env=theirs)

        yield _line(f"put -r of {count:,} x 4 KiB, data in memory", "rclone to rclone serve sftp", 0.25,
                    *bench.in_turns(put, rclone_put, turns=turns))

        def get():
            return _into(folder, lambda to: seconds_of(bench.program("tarn"), "get", "-r", "/0/", to, env=ours))

        def rclone_get():
            return _into(folder, lambda to: seconds_of("rclone", "copy", yard.place(1), to, env=theirs))

        yield _line("get -r of the same", "rclone from rclone serve sftp", 0.15,
                    *bench.in_turns(get, rclone_get, turns=turns))


def _into(folder, work):
    """What `work` gives for a place that is not there yet, and removed afterwards."""
    place = os.path.join(folder, "copy")
    try:
        return work(place)
    finally:
        shutil.rmtree(place)


def _line(work, yardstick, aim, ours, theirs):
    return Line(work, yardstick, "time", median_ratio(ours, theirs), aim,
                f"{median(ours):.3g} and {median(theirs):.3g} s")


def listing(bench: Bench):
    """One folder with many files."""
    count = bench.amount(10_000, 100)
    with bench.memory_folder() as folder, service(bench, folder) as tarnd, rclone("webdav", folder) as yard:
        tarnd.tarn("mkdir", "/many")
        uploads(bench, tarnd, 16, size=64, count=count, prefix="/many/")
        make_tree(os.path.join(yard.files, "many"), count, size=64)
        ours, theirs = bench.in_turns(
            lambda: seconds_of(bench.program("tarn"), "ls", "/many", env=tarnd.environment()),
            lambda: seconds_of("rclone", "lsf", yard.place("many"), env=yard.environment), turns=bench.amount(5, 1))
        yield _line(f"ls of {count:,}", "rclone lsf over WebDAV", 0.07, ours, theirs)


def one_large_file(bench: Bench):
    """Up and down through the same tarnd, beside curl, which neither hashes nor renames."""
    size = bench.amount(1024, 16)
    with bench.memory_folder(5 * size) as folder, service(bench, folder) as tarnd:
        source = make_file(os.path.join(folder, "source"), size * MIB)
        up, curl_up, up_memory = _uploads(bench, tarnd, source)
        yield _line(f"{size} MiB up", "curl -T to the same tarnd", 1.15, up, curl_up)
        yield Line(f"{size} MiB up: memory of tarn", "", "MiB", up_memory, 24)
        down, curl_down, down_memory = _downloads(bench, tarnd, source, os.path.join(folder, "copy"))
        yield _line(f"{size} MiB down", "curl -o from the same tarnd", 1.15, down, curl_down)
        yield Line(f"{size} MiB down: memory of tarn", "", "MiB", down_memory, 24,
                   f"tarnd in both: {tarnd.process.peak_memory():.0f} MiB")


def any_size(bench: Bench):
    """A sparse file up and down on the disk, as a file and through pipes: memory of both sides; the same bytes."""
    size = bench.size(1024, 16, 10 * 1024)
    words = f"{size // 1024} GiB" if size >= 1024 else f"{size} MiB"
    with bench.disk_folder() as folder, service(bench, folder) as tarnd:
        source, copy = os.path.join(folder, "source"), os.path.join(folder, "copy")
        with open(source, "wb") as file:
            file.truncate(size * MIB)
            for place in range(0, size, 16):  # an island in each 16 MiB
                file.seek(place * MIB)
                file.write(os.urandom(4096))
        for way, up, down in (("files", 'exec "$0" -q put "$1" "$2"', 'exec "$0" -q get "$2" "$3"'),
                              ("pipes", 'cat "$1" | "$0" -q put - "$2"', '"$0" -q cat "$2" | cat >"$3"')):
            for direction, script in (("up", up), ("down", down)):
                start = time.monotonic()
                memory = memory_of("bash", "-c", "set -o pipefail; " + script, bench.program("tarn"), source,
                                   f"/{way}", copy, env=tarnd.environment())
                yield Line(f"{words} {direction}, {way}: memory of tarn", "", "MiB", memory, 24,
                           f"{time.monotonic() - start:.1f} s")
            seconds_of("cmp", source, copy)
            if way == "files" and os.stat(copy).st_blocks * 512 > size * MIB / 8:
                raise Failed("The holes of the file were filled.")
            os.remove(copy)
            tarnd.tarn("rm", f"/{way}")
        yield Line(f"{words} in all four: memory of tarnd", "", "MiB", tarnd.process.peak_memory(), 64)


def _curl(tarnd, *more):
    header = "\n".join(f"{name}: {value}" for name, value in tarnd.session_header().items())
    return ["curl", "-sSf", "-H", header, "-H", "Expect:", *more]


def _uploads(bench, tarnd, source):
    environment = tarnd.environment()
    put = [bench.program("tarn"), "put", source, "/large"]
    target = tarnd.url + tarnd.path("files", "/large", createMode="CREATE", createNewVersion="false")

    def then_removed(work):
        result = work()
        tarnd.tarn("rm", "/large")
        return result

    ours, theirs = bench.in_turns(
        lambda: then_removed(lambda: seconds_of(*put, env=environment)),
        lambda: then_removed(lambda: seconds_of(*_curl(tarnd, "-T", source, target))))
    return ours, theirs, then_removed(lambda: memory_of(*put, env=environment))


def _downloads(bench, tarnd, source, copy):
    environment = tarnd.environment()
    tarnd.tarn("put", source, "/large")
    get = [bench.program("tarn"), "get", "/large", copy]
    url = tarnd.url + tarnd.path("files", "/large")

    def then_removed(work):
        result = work()
        os.remove(copy)
        return result

    ours, theirs = bench.in_turns(
        lambda: then_removed(lambda: seconds_of(*get, env=environment)),
        lambda: then_removed(lambda: seconds_of(*_curl(tarnd, "-o", copy, url))))
    return ours, theirs, then_removed(lambda: memory_of(*get, env=environment))
