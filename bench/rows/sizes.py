"""How time grows with the number of files, and with the size of one: curves, not ratios."""
import os
import shutil

from harness.bench import MIB, Bench
from harness.processes import seconds_of
from harness.result import Curve
from harness.service import service
from rows.commandline import make_file, make_tree


def numbers_of_files(bench: Bench):
    """put -r, get -r, ls and rm -r of folders of 4 KiB files, data in memory."""
    curves = {verb: Curve(verb, "files") for verb in ("put -r", "get -r", "ls", "rm -r")}
    counts = bench.amount((1_000, 4_000, 16_000), (20, 40)) + ((100_000,) if bench.full else ())
    with bench.memory_folder(2048) as folder, service(bench, folder) as tarnd:
        def tarn(curve, count, *arguments):
            seconds = seconds_of(bench.program("tarn"), *arguments, env=tarnd.environment())
            curves[curve].points.append((count, seconds))

        for count in counts:
            source, copy = os.path.join(folder, "source"), os.path.join(folder, "copy")
            make_tree(source, count)
            tarn("put -r", count, "put", "-r", source + "/", "/many")
            tarn("ls", count, "ls", "/many")
            tarn("get -r", count, "get", "-r", "/many/", copy)
            tarn("rm -r", count, "rm", "-r", "/many")
            shutil.rmtree(source)
            shutil.rmtree(copy)
    yield from curves.values()


def sizes_of_a_file(bench: Bench):
    """put and get of one file, data in memory."""
    put, get = Curve("put", "bytes"), Curve("get", "bytes")
    sizes = bench.amount((1 << 10, 32 << 10, MIB, 32 * MIB, 1024 * MIB), (1 << 10, MIB))
    sizes += (10 * 1024 * MIB,) if bench.full else ()
    with bench.memory_folder(3 * sizes[-1] // MIB + 100) as folder, service(bench, folder) as tarnd:
        source, copy = os.path.join(folder, "source"), os.path.join(folder, "copy")
        for size in sizes:
            make_file(source, size)
            for curve, arguments in ((put, ("put", source, "/one")), (get, ("get", "/one", copy))):
                seconds = seconds_of(bench.program("tarn"), *arguments, env=tarnd.environment())
                curve.points.append((size, seconds))
            tarnd.tarn("rm", "/one")
            os.remove(copy)
    yield from (put, get)
