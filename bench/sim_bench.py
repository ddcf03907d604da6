#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The whole extprop-sim command against its floors, each ratio from runs
interleaved in one go. scripts/bench.sh runs it and puts its rows in README.md.
  sim_bench.py SIM ZELVA_BENCH EXAMPLE PROPS OUT.json [REPETITIONS]

Trees, generated in a scratch directory under TMPDIR and removed afterwards:
  plain  the bundled example as it is
  files  plus 10,000 small files in directories no boot reads
  bytes  plus 1 GiB of real (not sparse) bytes in directories no boot reads
  large  the example with a 24 MB my_product/build.prop (gen_tree.py lines)
Measured: wall time of boot on plain, files and bytes; explain on files; CPU
time (user + system, the sandboxed child included) and peak RSS of boot on
large; the parser alone on that build.prop (zelva_bench --parser_file): its
time, and its own peak RSS."""
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

SMALL_FILES, SMALL_DIRS = 10000, 100
BULK_FILES, BULK_FILE_BYTES = 16, 64 << 20
LARGE_LINES = 520000  # about 24 MB of gen_tree.py lines
EXPLAINED = "ro.product.model"


def make_trees(example, scratch):
    trees = {}
    for name in ("plain", "files", "bytes", "large"):
        trees[name] = os.path.join(scratch, name)
        shutil.copytree(example, trees[name], symlinks=True)
    for d in range(SMALL_DIRS):
        directory = os.path.join(trees["files"], "vendor_blobs", f"d{d:03}")
        os.makedirs(directory)
        for f in range(SMALL_FILES // SMALL_DIRS):
            with open(os.path.join(directory, f"blob{f:03}.txt"), "w") as out:
                out.write(f"blob {d} {f}\n" * 4)
    block = os.urandom(1 << 20)
    directory = os.path.join(trees["bytes"], "vendor_blobs")
    os.makedirs(directory)
    for f in range(BULK_FILES):
        with open(os.path.join(directory, f"image{f:02}.bin"), "wb") as out:
            for _ in range(BULK_FILE_BYTES // len(block)):
                out.write(block)
    lines = os.path.join(scratch, "lines.prop")
    subprocess.run([sys.executable, os.path.join(os.path.dirname(__file__), "gen_tree.py"),
                    "lines", str(LARGE_LINES), lines], check=True)
    with open(os.path.join(trees["large"], "my_product", "build.prop"), "a") as out, \
            open(lines) as extra:
        shutil.copyfileobj(extra, out)
    return trees


def run(argv):
    """Wall seconds, CPU seconds (the command and its children) and peak RSS in bytes."""
    start = time.monotonic()
    proc = subprocess.Popen(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(proc.pid, 0)
    wall = time.monotonic() - start
    proc.returncode = os.waitstatus_to_exitcode(status)
    if proc.returncode not in (0, 1):
        raise SystemExit(f"{' '.join(argv)}: exit status {proc.returncode}")
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024


def main():
    sim, zelva_bench, example, props, out = sys.argv[1:6]
    repetitions = int(sys.argv[6]) if len(sys.argv) > 6 else 3
    scratch = tempfile.mkdtemp(prefix="sim-bench-", dir=os.environ.get("TMPDIR"))
    try:
        trees = make_trees(example, scratch)
        commands = {
            "boot plain": [sim, "boot", "--root", trees["plain"], "--props", props],
            "boot files": [sim, "boot", "--root", trees["files"], "--props", props],
            "boot bytes": [sim, "boot", "--root", trees["bytes"], "--props", props],
            "explain files": [sim, "explain", EXPLAINED, "--root", trees["files"], "--props",
                              props],
            "boot large": [sim, "boot", "--root", trees["large"], "--props", props],
        }
        samples = {name: [] for name in commands}
        for _ in range(repetitions):  # interleaved, so that load hits every command alike
            for name, argv in commands.items():
                samples[name].append(run(argv))
        # The parser alone, in a process of its own: its time, and its peak RSS
        # (the file read whole and its map), the least any boot of the file holds.
        parser = subprocess.Popen(
            [zelva_bench, "--parser_file=" + os.path.join(trees["large"], "my_product",
                                                          "build.prop"),
             f"--benchmark_repetitions={repetitions}", "--benchmark_format=json"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        parser_out = parser.stdout.read()
        _, status, parser_usage = os.wait4(parser.pid, 0)
        if os.waitstatus_to_exitcode(status) != 0:
            raise SystemExit(f"{zelva_bench} --parser_file: exit status {status}")
        parser_s = statistics.median(b["real_time"] / 1e3
                                     for b in json.loads(parser_out)["benchmarks"]
                                     if b.get("run_type") == "iteration")
        large_bytes = os.path.getsize(os.path.join(trees["large"], "my_product", "build.prop"))
    finally:
        shutil.rmtree(scratch, ignore_errors=True)

    def median(name, index):
        return statistics.median(sample[index] for sample in samples[name])

    result = {
        "repetitions": repetitions,
        "wall_s": {name: median(name, 0) for name in commands},
        "cpu_s": {name: median(name, 1) for name in commands},
        "peak_rss": {name: max(s[2] for s in samples[name]) for name in commands},
        "parser_cpu_s": parser_s,
        "parser_peak_rss": parser_usage.ru_maxrss * 1024,
        "large_file_bytes": large_bytes,
    }
    with open(out, "w") as f:
        json.dump(result, f, indent=1)
    print(json.dumps(result, indent=1))


if __name__ == "__main__":
    main()
