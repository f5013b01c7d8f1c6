#!/usr/bin/env python3
"""Times quillmend against `cp` of the same input and prints the ratios the project aims for.

Each case runs `cp` and quillmend alternately, several times, on the same file (after one read
to bring it into the page cache), and reports medians. A container case also times the
unwrapping alone (a container whose inner file the program refuses once unwrapped), and with
--baseline a previous build runs in the same rounds, so both are compared under one load. Peak resident memory is taken per run
from wait4(), so one run's peak never hides behind another's. Every quillmend run writes into a
fresh output folder that is removed afterwards. Standard library only.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

MIB = 1024 * 1024

# Aims: the plain conversion within 1.5x the copy time and 1.3x the input size in memory; a
# container's conversion within a factor of the plain conversion of the same inner file, and
# 2.2x the inner file in memory.
PLAIN_TIME_RATIO = 1.5
PLAIN_MEMORY_RATIO = 1.3
LAYER_TIME_RATIO = {"compressed": 2.5, "encrypted": 1.3}
LAYER_MEMORY_RATIO = 2.2


class Run:
    def __init__(self, seconds, peak_bytes, status, stderr):
        self.seconds = seconds
        self.peak_bytes = peak_bytes
        self.status = status
        self.stderr = stderr


def run_measured(argv, cwd):
    """Runs a program and returns its wall time, its own peak RSS and its exit status."""
    with tempfile.TemporaryFile() as err:
        start = time.perf_counter()
        child = subprocess.Popen(argv, cwd=cwd, stdout=subprocess.DEVNULL, stderr=err)
        _, status, usage = os.wait4(child.pid, 0)
        seconds = time.perf_counter() - start
        child.returncode = os.waitstatus_to_exitcode(status)
        err.seek(0)
        stderr = err.read().decode(errors="replace")
    return Run(seconds, usage.ru_maxrss * 1024, child.returncode, stderr)


def warm_cache(path):
    """Brings a file into the page cache as a read from disk leaves it.

    A file written during this boot stays cached in the pages it was written into, from which
    cp copies about a third faster than from pages a read filled (the program reads both alike).
    Dropping them first makes the figures the same whether the inputs were just generated or not.
    """
    with open(path, "rb") as f:
        os.fsync(f.fileno())  # dirty pages cannot be dropped
        os.posix_fadvise(f.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
        while f.read(8 * MIB):
            pass


class Bench:
    def __init__(self, args):
        self.args = args
        self.work = tempfile.mkdtemp(prefix="work-", dir=args.data_dir)

    def close(self):
        shutil.rmtree(self.work, ignore_errors=True)

    def copy_once(self, path):
        target = os.path.join(self.work, "copy")
        run = run_measured(["cp", path, target], self.work)
        os.remove(target)
        return run

    def convert_once(self, path, options, keep_output=False, program=None):
        out = tempfile.mkdtemp(prefix="out-", dir=self.work)
        argv = [program or self.args.quillmend, *options, "--password-file", self.args.passwords,
                "--output-directory", out, os.path.basename(path)]
        run = run_measured(argv, os.path.dirname(path))
        outputs = [os.path.join(out, name) for name in os.listdir(out)]
        if keep_output:
            return run, out, outputs
        shutil.rmtree(out, ignore_errors=True)
        return run

    def measure(self, path, options=(), unwrap=None):
        """Medians of cp, quillmend and (for a container) quillmend unwrapping alone."""
        warm_cache(path)
        if unwrap:
            warm_cache(unwrap)
        copies, converts, unwraps, baselines = [], [], [], []
        for _ in range(self.args.runs):
            copies.append(self.copy_once(path))
            run = self.convert_once(path, list(options))
            if run.status != 0:
                sys.exit(f"quillmend failed on {path} (status {run.status}):\n{run.stderr}")
            converts.append(run)
            if unwrap:
                unwraps.append(self.convert_once(unwrap, list(options)))
            if self.args.baseline:
                baselines.append(self.convert_once(path, list(options), program=self.args.baseline))
        median = lambda runs: statistics.median(r.seconds for r in runs) if runs else None
        return {
            "cp": median(copies),
            "quillmend": median(converts),
            "peak": max(r.peak_bytes for r in converts),
            "unwrap": median(unwraps),
            "baseline": median(baselines),
        }

    def check_output(self, path):
        """Converts once and compares the frames of input and output with the generator's check."""
        run, out, outputs = self.convert_once(path, [], keep_output=True)
        try:
            if run.status != 0 or len(outputs) != 1:
                return f"conversion failed (status {run.status})"
            summaries = []
            for file in (path, outputs[0]):
                check = subprocess.run([self.args.verifier, "--verify", file], capture_output=True, text=True)
                if check.returncode != 0:
                    return f"{file} does not pass its check:\n{check.stderr}"
                summaries.append([l for l in check.stdout.splitlines() if l.startswith(("group", "signal data"))])
            return None if summaries[0] == summaries[1] else "the output does not hold the input's frames"
        finally:
            shutil.rmtree(out, ignore_errors=True)


def verdict(ok):
    return "ok" if ok else "MISSED"


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("quillmend", "verifier", "data-dir", "passwords", "plain", "compressed",
                 "compressed-unwrap", "encrypted", "encrypted-unwrap"):
        parser.add_argument("--" + name, required=True)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--baseline", help="a previous build's quillmend, timed in the same rounds")
    args = parser.parse_args()
    if args.runs < 1:
        sys.exit("--runs must be at least 1")

    bench = Bench(args)
    try:
        problem = bench.check_output(args.plain)
        print(f"output check: {problem or 'the finalized file holds the same frames as the input'}")
        cases = [
            ("plain", args.plain, [], None),
            ("plain, --buffer 0", args.plain, ["--buffer", "0"], None),
            ("compressed", args.compressed, [], args.compressed_unwrap),
            ("encrypted", args.encrypted, [], args.encrypted_unwrap),
        ]
        results = {}
        for name, path, options, unwrap in cases:
            print(f"measuring {name} ({args.runs} runs) ...", flush=True)
            results[name] = bench.measure(path, options, unwrap)
    finally:
        bench.close()

    plain_size = os.path.getsize(args.plain)
    print()
    print(f"input: {plain_size / MIB:.1f} MiB MDF4 file (the inner file of every container); medians of {args.runs} runs")
    header = (f"{'case':<18} {'file MiB':>8} {'unwrap s':>8} {'total s':>8} {'x cp':>6} {'x plain':>7} "
              f"{'peak MiB':>8} {'x inner':>7}")
    if args.baseline:
        header += f" {'before s':>8}"
    header += "  aim"
    print(header)
    print("-" * len(header))
    plain_time = results["plain"]["quillmend"]
    failed = False
    for name, path, _, _ in cases:
        r = results[name]
        size = os.path.getsize(path)
        ratio = r["quillmend"] / r["cp"] if r["cp"] > 0 else float("inf")
        to_plain = r["quillmend"] / plain_time
        memory = r["peak"] / plain_size
        if name == "plain":
            ok = ratio <= PLAIN_TIME_RATIO and memory <= PLAIN_MEMORY_RATIO
            aim = f"<= {PLAIN_TIME_RATIO:g}x cp, <= {PLAIN_MEMORY_RATIO:g}x inner: {verdict(ok)}"
        elif name in LAYER_TIME_RATIO:
            limit = LAYER_TIME_RATIO[name]
            ok = to_plain <= limit and memory <= LAYER_MEMORY_RATIO
            aim = f"<= {limit:g}x plain, <= {LAYER_MEMORY_RATIO:g}x inner: {verdict(ok)}"
        else:
            ok = True
            aim = "(reported only)"
        failed = failed or not ok
        unwrap = f"{r['unwrap']:>8.3f}" if r["unwrap"] is not None else f"{'-':>8}"
        line = (f"{name:<18} {size / MIB:>8.1f} {unwrap} {r['quillmend']:>8.3f} {ratio:>6.2f} {to_plain:>7.2f} "
                f"{r['peak'] / MIB:>8.1f} {memory:>7.2f}")
        if args.baseline:
            line += f" {r['baseline']:>8.3f}"
        print(f"{line}  {aim}")
    print(f"(cp of the plain file: {results['plain']['cp']:.3f} s)")
    if problem:
        print(f"\noutput check FAILED: {problem}")
    return 1 if failed or problem else 0


if __name__ == "__main__":
    sys.exit(main())
