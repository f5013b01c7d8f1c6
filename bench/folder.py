#!/usr/bin/env python3
"""Times the conversion of a whole folder, as a fleet hands it over, against `cp -r` of it.

The folder holds files of about 10 MB each: plain, compressed, encrypted, and compressed inside
encrypted, in sub-folders. Cases, run alternately and reported as medians and best times: `cp -r`,
one file at a time (`--jobs 1`), one file per processor (`--jobs 0`), and one at a time with `-d`
on a copy (every output flushed to disk before its input is removed) to show what the flushes
cost. On a shared virtual machine the neighbours' load only ever adds time, so the best of the
runs shows what the machine itself allows, and the median what a run typically gets.
Standard library only.
"""

import argparse
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from measure import warm_cache

KINDS = [
    ("plain", "MF4", []),
    ("compressed", "MFC", ["--compress"]),
    ("encrypted", "MFE", ["--encrypt", "bench-password"]),
    ("nested", "MFM", ["--compress", "--encrypt", "bench-password"]),
]
DEVICE = "1A2B3C4D"


def generate(mdfgen, folder, per_kind, size):
    if os.path.isdir(folder):
        return
    scratch = folder + ".part"
    shutil.rmtree(scratch, ignore_errors=True)
    for index in range(per_kind):
        for kind, extension, options in KINDS:
            sub = os.path.join(scratch, "car%d" % (index % 3))
            os.makedirs(sub, exist_ok=True)
            out = os.path.join(sub, "%s%02d.%s" % (kind, index, extension))
            seed = str(1000 + index * 10 + len(kind))
            subprocess.run([mdfgen, "--size", size, "--seed", seed, "--device-id", DEVICE, *options,
                            "--out", out], check=True, stdout=subprocess.DEVNULL)
    os.rename(scratch, folder)


def folder_bytes(folder):
    total = 0
    for parent, _, files in os.walk(folder):
        total += sum(os.path.getsize(os.path.join(parent, name)) for name in files)
    return total


def timed(argv, cwd):
    # Each case starts with nothing left to write back. Otherwise the kernel writes the previous
    # case's outputs during this one: on the processor a one-at-a-time run leaves idle, but one
    # that a run on every processor needs, which skews the comparison.
    os.sync()
    start = time.perf_counter()
    child = subprocess.Popen(argv, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    _, status, usage = os.wait4(child.pid, 0)
    seconds = time.perf_counter() - start
    code = os.waitstatus_to_exitcode(status)
    if code != 0:
        sys.exit("bench: %s failed with status %d: %s" % (" ".join(argv), code, child.stderr.read().decode()))
    return seconds, usage.ru_maxrss * 1024


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quillmend", required=True)
    parser.add_argument("--mdfgen", required=True)
    parser.add_argument("--data-dir", required=True)
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--per-kind", type=int, default=6)
    parser.add_argument("--size", default="10M")
    parser.add_argument("--baseline", help="a previous build's quillmend, timed in the same rounds")
    args = parser.parse_args()

    source = os.path.join(args.data_dir, "fleet-%dx%s" % (args.per_kind * len(KINDS), args.size))
    generate(args.mdfgen, source, args.per_kind, args.size)
    with open(os.path.join(args.data_dir, "fleet-passwords.json"), "w") as f:
        f.write('{\n  "%s": "bench-password"\n}\n' % DEVICE)
    passwords = os.path.join(args.data_dir, "fleet-passwords.json")
    files = args.per_kind * len(KINDS)
    size = folder_bytes(source)
    for parent, _, names in os.walk(source):
        for name in names:
            warm_cache(os.path.join(parent, name))

    builds = [("", args.quillmend)] + ([(" (before)", args.baseline)] if args.baseline else [])
    jobs_cases = [(name + label, program, options) for label, program in builds
                  for name, options in (("--jobs 1", ["--jobs", "1"]), ("--jobs 0", ["--jobs", "0"]))]
    cases = {"cp -r": [], **{name: [] for name, _, _ in jobs_cases}, "--jobs 1 -d": []}
    peaks = {name: [] for name in cases}
    for round_ in range(args.runs):
        with tempfile.TemporaryDirectory(dir=args.data_dir) as scratch:
            copy = os.path.join(scratch, "copy")
            seconds, peak = timed(["cp", "-r", source, copy], scratch)
            cases["cp -r"].append(seconds)
            # The place in a round still counts for up to a tenth (the first case after cp -r is
            # the slowest), so each case takes every place in turn.
            shift = round_ % len(jobs_cases)
            for index, (name, program, options) in enumerate(jobs_cases[shift:] + jobs_cases[:shift]):
                out = os.path.join(scratch, "out%d" % index)
                os.makedirs(out)
                seconds, peak = timed([program, "-p", passwords, *options, "-O", out, source], scratch)
                cases[name].append(seconds)
                peaks[name].append(peak)
                # The next case writes into the memory this one's outputs leave free, as on a
                # machine in steady use. Left in place, each case takes memory the system has not
                # used for a while, which this VM's host must first hand back: up to 3x the time,
                # paid by whichever case comes when that happens.
                shutil.rmtree(out)
            # Into the copy itself, whose inputs are removed once their outputs are on disk.
            seconds, peak = timed([args.quillmend, "-p", passwords, "--jobs", "1", "-d", "copy"], scratch)
            cases["--jobs 1 -d"].append(seconds)
            peaks["--jobs 1 -d"].append(peak)

    median = {name: statistics.median(values) for name, values in cases.items()}
    best = {name: min(values) for name, values in cases.items()}
    mib = size / (1024 * 1024)
    print("\nfolder: %d files, %.0f MiB (plain, compressed, encrypted, nested), %d runs, medians"
          % (files, mib, args.runs))
    print("| case | time s | MiB/s | x cp -r | best s | peak MiB |")
    print("|---|---|---|---|---|---|")
    for name, seconds in median.items():
        peak = "%.0f" % (statistics.median(peaks[name]) / (1024 * 1024)) if peaks[name] else "-"
        print("| %s | %.3f | %.0f | %.2f | %.3f | %s |"
              % (name, seconds, mib / seconds, seconds / median["cp -r"], best[name], peak))
    for label, _ in builds:
        one, all_ = "--jobs 1" + label, "--jobs 0" + label
        print("%s is %.2fx faster than %s (best runs: %.2fx; aim >= 1.7x on 2 cores); "
              "%s is %.2fx cp -r (aim <= 4x)"
              % (all_, median[one] / median[all_], one, best[one] / best[all_], all_, median[all_] / median["cp -r"]))
    flush = median["--jobs 1 -d"] - median["--jobs 1"]
    print("flushing with -d: %+.3f s in all, %+.1f ms per file, %+.2f s per GiB of input"
          % (flush, 1000 * flush / files, flush / (size / (1 << 30))))


if __name__ == "__main__":
    main()
