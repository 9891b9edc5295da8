"""Figures of whole programs: the agent, its clients, and the tools that read its tables."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import time

import callgrind

MANY, FEW = 1000000, 100000
BATCH = 1000
TABLE = "VaneIpv4Override"


class Agent:
    """An agent on tables of its own that listens on a Unix socket; stopped at the end of a `with`."""

    def __init__(self, bin_, directory, prefix=(), on_exit="detach"):
        self.bin = bin_
        self.directory = pathlib.Path(directory)
        self.root = self.directory / "agent"
        self.address = f"unix:{directory}/p4.sock"
        self.listening = pathlib.Path(f"{self.root}.run/p4runtime.addr")
        self.log = self.directory / "agent.log"
        self.command = [*prefix, bin_ / "p4rt-agent", "--shoal-root", self.root, "--listen", self.address,
                        "--on-exit", on_exit, "--capacity", f"{TABLE}={2 * MANY}", "--max-call-time", "600"]

    def __enter__(self):
        self.start()
        return self

    def start(self):
        self.listening.unlink(missing_ok=True)
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(self.command, stdout=log, stderr=log)
        deadline = time.monotonic() + 60
        while not self.listening.exists():
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.__exit__()
                raise RuntimeError("the agent does not start:\n" + self.log.read_text())
            time.sleep(0.005)

    def kill(self):
        self.process.kill()
        self.process.wait()

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(120)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        shutil.rmtree(self.root, ignore_errors=True)
        shutil.rmtree(f"{self.root}.run", ignore_errors=True)

    def client_command(self, *arguments):
        return [self.bin / "p4rt-client", "--json", "--address", self.address, *arguments]

    def client(self, *arguments):
        return json.loads(
            subprocess.run(self.client_command(*arguments), check=True, stdout=subprocess.PIPE, text=True).stdout)

    def program(self, routes):
        """Inserts so many routes and answers when they are there."""
        prefixes = self.directory / "prefixes.txt"
        with open(prefixes, "w") as out:
            for i in range(routes):
                out.write(f"{11 + (i >> 24)}.{i >> 16 & 255}.{i >> 8 & 255}.{i & 255}/32\n")
        done = self.client("program", "--prefixes", str(prefixes), "--batch", str(BATCH))
        if done["failed"] != 0 or done["done"] < routes:
            raise RuntimeError(f"p4rt-client program: expected {routes} done, found {done}")


def private_memory(pid):
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith("RssAnon:"):
            return int(line.split()[1])
    return 0


def streamed(command, lines_expected):
    """Seconds to the first output and to the end, and the most private KiB seen at any time between."""
    started = time.monotonic()
    process = subprocess.Popen(command, stdout=subprocess.PIPE)
    lines, chunks, most, first = 0, 0, 0, None
    while chunk := os.read(process.stdout.fileno(), 1 << 20):
        first = first or time.monotonic() - started
        lines += chunk.count(b"\n")
        chunks += 1
        if chunks % 64 == 1:
            most = max(most, private_memory(process.pid))
    seconds = time.monotonic() - started
    process.stdout.close()
    if process.wait() != 0 or lines < lines_expected:
        raise RuntimeError(f"{command}: status {process.returncode}, {lines} lines, expected {lines_expected}")
    return first, seconds, most


def readers(agent):
    socket = f"{agent.root}.run/rowdb.sock"
    return {
        "Vanectl_Dump": [agent.bin / "vanectl", "--socket", socket, "dump", TABLE],
        "Shoalctl_Show": [agent.bin / "shoalctl", "--root", agent.root, "show", TABLE],
    }


def measure_p4runtime(figures, bin_, directory, repetitions):
    for _ in range(repetitions):
        for in_flight in (1, 4):
            with Agent(bin_, directory) as agent:
                rates = agent.client("bench", "--routes", str(MANY), "--batch", str(BATCH), "--in-flight", str(in_flight))
            for figure, rate in (("Write", "inserts"), ("Delete", "deletes")):
                figures.add(f"P4Runtime_{figure}/in_flight:{in_flight}", 1e9 / rates[f"{rate}_per_s"])
            figures.add("P4Runtime_Read", 1e9 / rates["reads_per_s"])


def measure_readers(figures, bin_, directory, repetitions):
    few = {}
    with Agent(bin_, directory) as agent:
        agent.program(FEW)
        for name, command in readers(agent).items():
            few[name] = streamed(command, FEW)[2]
    with Agent(bin_, directory) as agent:
        agent.program(MANY)
        for name, command in readers(agent).items():
            for _ in range(repetitions):
                first, seconds, most = streamed(command, MANY)
                figures.add(name, seconds * 1e9 / MANY)
                figures.add(f"{name}#first_ms", first * 1e3)
                figures.add(f"{name}#memory_growth", most / max(few[name], 1))


def wait_for_line(command):
    """Until the first line of output; the others are left."""
    with subprocess.Popen(command, stdout=subprocess.PIPE) as process:
        line = process.stdout.readline()
        process.kill()
    if not line:
        raise RuntimeError(f"{command}: no output")


def measure_restart(figures, bin_, directory, repetitions):
    """From the start of an agent, the last one of which was killed with its routes, to its first answer."""
    with Agent(bin_, directory) as agent:
        agent.program(MANY)
        for _ in range(repetitions):
            agent.kill()
            started = time.monotonic()
            agent.start()
            wait_for_line(agent.client_command("read", "ipv4.override"))
            figures.add("Restart#first_answer_ms", (time.monotonic() - started) * 1e3)


def own_share(figures, bin_, directory):
    """The agent's own part of the instructions of a Write: what a larger number of them adds."""
    costs = []
    for routes in (1000, 6000):
        out = pathlib.Path(directory) / f"callgrind.{routes}"
        # "keep": emptying the tables at the end is no part of a Write.
        counted = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}"]
        with Agent(bin_, directory, counted, on_exit="keep") as agent:
            agent.program(routes)
        costs.append(callgrind.own_and_all(out, ("p4rt-agent", "libP4RuntimeRoutingVane", "libP4RuntimeRoutingPlatform")))
    (own_few, all_few), (own_many, all_many) = costs
    figures.add("P4Runtime_Write#own_share", (own_many - own_few) / (all_many - all_few))
    figures.add("P4Runtime_Write#instructions", (all_many - all_few) / 5000)


def measure(figures, bin_, directory, quick):
    """What went wrong, one text each; the other figures are there all the same."""
    repetitions = 1 if quick else 5
    parts = [lambda: measure_p4runtime(figures, bin_, directory, repetitions),
             lambda: measure_readers(figures, bin_, directory, repetitions),
             lambda: measure_restart(figures, bin_, directory, repetitions)]
    if not quick and shutil.which("valgrind"):
        parts.append(lambda: own_share(figures, bin_, directory))
    failures = []
    for part in parts:
        try:
            part()
        except (RuntimeError, OSError, ValueError, subprocess.CalledProcessError) as failure:
            failures.append(str(failure))
    return failures
