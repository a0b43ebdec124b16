#!/usr/bin/env python3
"""Runs every fuzz target so often that together it is millions of executions, and counts them.

usage: RunMany.py [--executions N] <build folder> [target...]

Each target gets its share of N (20,000,000 by default), the quick ones most. What is found on the way is kept in
<build folder>/corpus and tried first the next time; an input that is wrong stays as <build folder>/<target>-crash-...
The exit code is 1 when there is one, or when there were fewer executions than wanted.
"""

import argparse
import concurrent.futures
import os
import pathlib
import queue
import re
import subprocess
import sys
import time
import typing

folder = pathlib.Path(__file__).resolve().parent
wanted = 20_000_000


class Target(typing.NamedTuple):
    share: int  # of all executions, in ten-thousandths
    longest: int  # bytes of an input; of those that it begins with, what is longer is cut off


# The order is that of the time that their shares take, so that all processors are busy to the end.
targets = {
    "FrameReaderFuzz": Target(500, 1024),
    "MjpegSplitterFuzz": Target(4000, 512),
    "ResponseFuzz": Target(100, 1024),
    "ChunkRecordFuzz": Target(2500, 512),
    "StoredBytesFuzz": Target(50, 512),
    "ExportReaderFuzz": Target(2245, 600),
    "LocalStoreFuzz": Target(5, 256),
    "CommandLineFuzz": Target(500, 256),
    "ConfigurationFuzz": Target(50, 1024),
    "ServeRequestFuzz": Target(50, 4096),
}
# What is freed is kept from being used again for long enough, and what allocated it is told well enough, when neither
# takes more time than the target itself.
quick = "quarantine_size_mb=4:malloc_context_size=4"


def fixedAddresses():
    """The sanitizers want to know where memory lies; kernels that randomise more than they expect end them."""
    command = ["setarch", "--addr-no-randomize"]
    try:
        return command if subprocess.run([*command, "true"], capture_output=True).returncode == 0 else []
    except OSError:
        return []


def commandOf(build, target, executions):
    corpus, seeds = build / "corpus" / target, build / "seeds" / target
    corpus.mkdir(parents=True, exist_ok=True)
    subprocess.run((sys.executable, "-B", folder / "MakeSeeds.py", target, seeds), check=True)
    dictionary = folder / f"{target}.dict"
    # Its standard output is closed: the client library reports a server's failures there. Leaks are looked for once, when
    # the process ends. Choosing inputs by how rare they are takes longer than executing them. What takes five minutes hangs,
    # also when others keep the machine busy.
    return [
        *fixedAddresses(), build / "Tests/Fuzz" / target, f"-runs={executions}", "-timeout=300", "-rss_limit_mb=4096",
        f"-max_len={targets[target].longest}", "-detect_leaks=0", "-entropic=0", "-reload=0",
        "-print_final_stats=1", "-close_fd_mask=1", f"-artifact_prefix={build}/{target}-",
        *([f"-dict={dictionary}"] if dictionary.exists() else []), corpus, folder / target, seeds,
    ]


def execute(build, target, executions):
    """How often it ran, how long that took, and whether it came to its end without a finding."""
    started = time.monotonic()
    log = build / f"{target}.log"
    environment = {"ASAN_OPTIONS": quick, **os.environ}
    with open(log, "wb") as output:
        code = subprocess.run(
            commandOf(build, target, executions), stdout=output, stderr=output, env=environment).returncode
    text = log.read_text(errors="replace")
    count = re.findall(r"(?m)^stat::number_of_executed_units:\s*(\d+)", text)
    seconds = max(1, round(time.monotonic() - started))
    done = int(count[-1]) if count else 0
    if code != 0:
        print(f"{target}: ended with {code}\n{text[-4000:]}", flush=True)
    print(f"{target:20} {done:10} executions in {seconds:5} s, {done // seconds} a second", flush=True)
    return done, code == 0


def sharesOf(names, executions):
    """How often each of them is to run, so that together it is at least so often."""
    whole = sum(targets[name].share for name in names)
    return {name: -(-executions * targets[name].share // whole) for name in names}


def stayOnOne(processors):
    """Ties what this thread starts to a processor: the threads of a storage hand over to each other several times for each
    input, which takes far longer from one processor to another."""
    os.sched_setaffinity(0, {processors.get()})


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].removeprefix("usage: "))
    parser.add_argument("--executions", type=int, default=wanted)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("targets", nargs="*", choices=[*targets, []], metavar="target")
    arguments = parser.parse_args()
    if pathlib.Path("/dev/shm").is_dir() and os.access("/dev/shm", os.W_OK):
        os.environ["TMPDIR"] = "/dev/shm"  # stores are made by the thousand: where nothing has to be flushed
    started = time.monotonic()
    shares = sharesOf(arguments.targets or list(targets), arguments.executions)
    processors = queue.SimpleQueue()
    for processor in os.sched_getaffinity(0):
        processors.put(processor)
    with concurrent.futures.ThreadPoolExecutor(processors.qsize(), initializer=stayOnOne, initargs=(processors,)) as pool:
        results = list(pool.map(lambda name: execute(arguments.build.resolve(), name, shares[name]), shares))
    done = sum(count for count, _ in results)
    findings = sum(not good for _, good in results)
    print(f"{done} executions, {findings} findings, in {round(time.monotonic() - started)} s")
    return 0 if findings == 0 and done >= arguments.executions else 1


if __name__ == "__main__":
    sys.exit(main())
