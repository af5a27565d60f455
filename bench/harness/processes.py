"""Programs that run beside a measurement, and end with it."""
import contextlib
import ctypes
import os
import signal
import socket
import subprocess
import tempfile
import time

_libc = ctypes.CDLL(None)
_PR_SET_PDEATHSIG = 1
_TICKS = os.sysconf("SC_CLK_TCK")


class Failed(Exception):
    """A measurement that could not be made; the text says why."""


def _end_with_parent():
    _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGTERM)


class Process:
    """A program in the background; leaving the context ends it."""

    def __init__(self, *command, env=None, **popen):
        self.command = command
        self.errors = tempfile.TemporaryFile()
        self.popen = subprocess.Popen(command, env=env, stderr=self.errors, preexec_fn=_end_with_parent, **popen)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.popen.poll() is None:
            self.popen.terminate()
            try:
                self.popen.wait(20)
            except subprocess.TimeoutExpired:
                self.popen.kill()
                self.popen.wait()
        for stream in (self.popen.stdin, self.popen.stdout, self.errors):
            if stream:
                stream.close()

    def first_line(self):
        """The first line that it prints, which tells where it listens."""
        line = self.popen.stdout.readline()
        if not line:
            self.popen.wait()
            raise Failed(f"{self.command[0]} did not start: {self.said()}")
        return line.strip()

    def said(self):
        self.errors.seek(0)
        return self.errors.read().decode(errors="replace").strip()

    def wait_for_port(self, port, seconds=20):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            if self.popen.poll() is not None:
                raise Failed(f"{self.command[0]} ended: {self.said()}")
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", port)) == 0:
                    return
            time.sleep(0.02)
        raise Failed(f"{self.command[0]} does not listen on port {port}: {self.said()}")

    def processor_seconds(self):
        """Of it and of its children, such as the workers of a server."""
        return sum(_ticks_of(pid) for pid in _family(self.popen.pid)) / _TICKS

    def peak_memory(self):
        """In MiB."""
        with open(f"/proc/{self.popen.pid}/status", encoding="ascii") as status:
            for line in status:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1]) / 1024
        raise Failed(f"{self.command[0]} has ended")


def _family(pid):
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as children:
        return [pid] + [int(child) for child in children.read().split()]


def _ticks_of(pid):
    with open(f"/proc/{pid}/stat", encoding="utf-8") as stat:
        fields = stat.read().rpartition(")")[2].split()
    return int(fields[11]) + int(fields[12])  # in user mode, and in the kernel for it


@contextlib.contextmanager
def serving(command, **options):
    """A server and its port. `command` is called for a port that nobody has; another program may take that before
    the server does, and then there is a next one."""
    for left in reversed(range(5)):
        port = free_port()
        with Process(*command(port), **options) as process:
            try:
                process.wait_for_port(port)
            except Failed:
                if left == 0:
                    raise
                continue
            yield process, port
            return


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


PATIENCE = 600
"""Seconds for any program; none that works takes so long."""


def _run(command, env, stdin, stdout):
    """Fails with what the program said when it fails."""
    try:
        done = subprocess.run(command, env=env, stdin=stdin, stdout=stdout, stderr=subprocess.PIPE, text=True,
                              check=False, preexec_fn=_end_with_parent, timeout=PATIENCE)
    except subprocess.TimeoutExpired as error:
        raise Failed(f"{' '.join(map(str, command))} has not ended after {PATIENCE} s") from error
    if done.returncode != 0:
        raise Failed(f"{' '.join(map(str, command))} ended with {done.returncode}: {done.stderr.strip()}")
    return done.stdout


def output_of(*command, env=None, stdin=subprocess.DEVNULL):
    """What a program prints."""
    return _run(command, env, stdin, subprocess.PIPE)


def seconds_of(*command, env=None):
    """How long a program takes; what it prints is thrown away."""
    start = time.perf_counter()
    _run(command, env, subprocess.DEVNULL, subprocess.DEVNULL)
    return time.perf_counter() - start


def memory_of(*command, env=None):
    """Peak memory of a program in MiB, or of the largest that it starts. Not from this process's own accounting of
    its children: there a child never counts for less than this process did when it started it."""
    with tempfile.NamedTemporaryFile("r") as report:
        seconds_of("/usr/bin/time", "-f", "%M", "-o", report.name, *command, env=env)
        return int(report.read().split()[-1]) / 1024
