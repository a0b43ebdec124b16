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
import re
import subprocess
import sys
import time

folder = pathlib.Path(__file__).resolve().parent
wanted = 20_000_000
# Thousandths of all executions, by how many a second a target does.
shares = {
    "ChunkRecordFuzz": 100,
    "CommandLineFuzz": 300,
    "ConfigurationFuzz": 10,
    "ExportReaderFuzz": 150,
    "FrameReaderFuzz": 20,
    "LocalStoreFuzz": 1,
    "MjpegSplitterFuzz": 399,
    "ResponseFuzz": 10,
    "ServeRequestFuzz": 5,
    "StoredBytesFuzz": 5,
}


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
    # Its standard output is closed: the client library reports a server's failures there.
    return [
        *fixedAddresses(), build / "Tests/Fuzz" / target, f"-runs={executions}", "-timeout=20", "-rss_limit_mb=4096",
        "-print_final_stats=1", "-close_fd_mask=1", f"-artifact_prefix={build}/{target}-",
        *([f"-dict={dictionary}"] if dictionary.exists() else []), corpus, folder / target, seeds,
    ]


def execute(build, target, executions):
    """How often it ran, how long that took, and whether it came to its end without a finding."""
    started = time.monotonic()
    log = build / f"{target}.log"
    with open(log, "wb") as output:
        code = subprocess.run(commandOf(build, target, executions), stdout=output, stderr=output).returncode
    text = log.read_text(errors="replace")
    count = re.findall(r"(?m)^stat::number_of_executed_units:\s*(\d+)", text)
    seconds = max(1, round(time.monotonic() - started))
    done = int(count[-1]) if count else 0
    if code != 0:
        print(f"{target}: ended with {code}\n{text[-4000:]}", flush=True)
    print(f"{target:20} {done:10} executions in {seconds:5} s, {done // seconds} a second", flush=True)
    return done, code == 0


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].removeprefix("usage: "))
    parser.add_argument("--executions", type=int, default=wanted)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("targets", nargs="*")
    arguments = parser.parse_args()
    targets = arguments.targets or sorted(shares)
    if pathlib.Path("/dev/shm").is_dir() and os.access("/dev/shm", os.W_OK):
        os.environ["TMPDIR"] = "/dev/shm"  # stores are made by the thousand: where nothing has to be flushed
    whole = sum(shares[target] for target in targets)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(
            lambda target: execute(arguments.build.resolve(), target, -(-arguments.executions * shares[target] // whole)),
            targets))
    done = sum(count for count, _ in results)
    findings = sum(not good for _, good in results)
    print(f"{done} executions, {findings} findings")
    return 0 if findings == 0 and done >= arguments.executions else 1


if __name__ == "__main__":
    sys.exit(main())
