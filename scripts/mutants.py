#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Applies each hand mutation of tests/mutations.tsv to a scratch copy of the
tree, rebuilds the test binary and runs the suite, and reports which mutations
the suite catches.

    scripts/mutants.py                      every row; exit 1 unless all are caught
    scripts/mutants.py --only ID ...        the named rows (first column)
    scripts/mutants.py --allow-survivors    report only
    scripts/mutants.py --record             also update tests/mutations.baseline
    scripts/mutants.py --all-catchers       run the whole suite on every mutation and
                                            record every test that fails, not just the first

The suite runs as one process of the test binary. The baseline's third column
is a gtest filter tried first (a test name, or suites such as "PathTest.*");
only a mutation it misses is run against the whole suite. With --all-catchers
every row runs the whole suite and the baseline names every catching test, so a
test can be dropped exactly when each row it catches has another catcher left.

The repository's own files are never modified: the source is copied to
build-mutants/src (only files that changed are rewritten, so the build there
stays incremental) and built in build-mutants/build. A mutation whose snippet
does not occur exactly once, or whose build fails, is "not applicable".
"""

import argparse
import csv
import os
import re
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CATALOG = ROOT / "tests" / "mutations.tsv"
BASELINE = ROOT / "tests" / "mutations.baseline"
LIBRARY_DIR = "system/core_common/extproperty"
# A mutation that makes the suite hang is caught too, but it must not stall the run.
SUITE_TIMEOUT_S = 600
NICE = ["nice", "-n", "19"]
# Stands for a line break inside a snippet of the catalog.
NEWLINE = "\u23ce"


def load_catalog(path):
    with open(path, newline="") as f:
        rows = [r for r in csv.DictReader(f, delimiter="\t", quoting=csv.QUOTE_NONE)]
    ids = set()
    for r in rows:
        if r["id"] in ids:
            sys.exit(f"mutants: duplicate id {r['id']} in {path}")
        ids.add(r["id"])
    return rows


def load_baseline_catchers(path):
    """id -> the test that caught the mutation last time, tried first (the
    first of the row's catchers when the baseline lists several)."""
    catchers = {}
    if path.exists():
        for line in path.read_text().splitlines():
            fields = line.split("\t")
            if len(fields) == 3 and fields[1] == "caught":
                catchers[fields[0]] = fields[2].split()[0]
    return catchers


def record_baseline(catalog, results, elapsed):
    """Merges |results| into tests/mutations.baseline (rows not run keep their
    last result) and rewrites its summary over the whole catalog."""
    recorded = {}
    if BASELINE.exists():
        for line in BASELINE.read_text().splitlines():
            fields = line.split("\t")
            if not line.startswith("#") and len(fields) == 3:
                recorded[fields[0]] = (fields[1], fields[2])
    for rid, outcome, detail in results:
        recorded[rid] = (outcome, detail)
    rows = [(r["id"],) + recorded[r["id"]] for r in catalog if r["id"] in recorded]
    caught = sum(1 for _, o, _ in rows if o == "caught")
    survived = sum(1 for _, o, _ in rows if o == "survived")
    lines = [f"# {caught} caught, {survived} survived, "
             f"{len(rows) - caught - survived} not applicable, "
             f"{len(catalog) - len(rows)} not run (scripts/mutants.py --record)",
             f"# last run: {len(results)} mutations in {elapsed / 60:.1f} min on 2 shared cores",
             "# id\toutcome\tcatching tests (all of them after --all-catchers, else the first)"]
    lines += ["\t".join(row) for row in rows]
    BASELINE.write_text("\n".join(lines) + "\n")


def sync_tree(src_dir):
    """Mirrors the worktree's tracked and unignored files into |src_dir|,
    touching only files whose content differs."""
    listed = subprocess.run(
        ["git", "ls-files", "-co", "--exclude-standard", "-z"],
        cwd=ROOT, check=True, capture_output=True).stdout.decode().split("\0")
    wanted = {p for p in listed if p and os.path.lexists(ROOT / p)}
    for rel in wanted:
        src, dst = ROOT / rel, src_dir / rel
        dst.parent.mkdir(parents=True, exist_ok=True)
        if src.is_symlink():  # the example trees hold absolute links
            link = os.readlink(src)
            if dst.is_symlink() and os.readlink(dst) == link:
                continue
            if os.path.lexists(dst):
                os.unlink(dst)
            os.symlink(link, dst)
            continue
        data = src.read_bytes()
        if dst.is_file() and not dst.is_symlink() and dst.read_bytes() == data:
            continue
        if dst.is_symlink():
            os.unlink(dst)
        dst.write_bytes(data)
        os.chmod(dst, src.stat().st_mode & 0o777)
    for dirpath, _, files in os.walk(src_dir):
        for name in files:
            rel = os.path.relpath(os.path.join(dirpath, name), src_dir)
            if rel not in wanted:
                os.unlink(os.path.join(dirpath, name))


def run(cmd, cwd=None, timeout=None):
    """Runs |cmd| in its own process group, killing the group on timeout.
    Returns (exit code or None on timeout, combined output)."""
    proc = subprocess.Popen(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
        return proc.returncode, out.decode(errors="replace")
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, _ = proc.communicate()
        return None, out.decode(errors="replace")


def build(build_dir, jobs):
    return run(NICE + ["cmake", "--build", str(build_dir), "-j", str(jobs),
                       "--target", "zelva_tests"])


SUITE_LINE = re.compile(r"^\[ *(RUN|OK|SKIPPED|FAILED) *\] (\S+?\.\S+?)(?: \(\d+ ms\))?$")


def run_suite(build_dir, only=None):
    """Runs the test binary (the test |only|, else all) in one process and
    returns (passed, every failing test). A test that crashes or hangs the
    process counts as failing and the rest is run again without it."""
    binary = build_dir / "bin" / "zelva_tests"
    failing = []
    for _ in range(20):
        cmd = NICE + [str(binary)]
        if only:
            cmd.append("--gtest_filter=" + only + ("-" + ":".join(failing) if failing else ""))
        elif failing:
            cmd.append("--gtest_filter=-" + ":".join(failing))
        code, out = run(cmd, cwd=build_dir / "tests", timeout=SUITE_TIMEOUT_S)
        if code is None and not out.strip():
            return False, failing + ["timeout"]
        running = None
        for line in out.splitlines():
            m = SUITE_LINE.match(line.strip())
            if not m:
                continue
            state, name = m.groups()
            if state == "RUN":
                running = name
            else:
                running = None
                if state == "FAILED" and name not in failing:
                    failing.append(name)
        if running is None:  # the process ran to its end
            if code != 0 and not failing:
                failing.append("unknown")
            return not failing, failing
        failing.append(running)
    return False, failing


def try_mutation(row, src_dir, build_dir, jobs, catchers, all_catchers=False):
    """Returns (outcome, detail): caught/survived/not-found/build-failed."""
    path = src_dir / LIBRARY_DIR / row["file"]
    if not path.is_file():
        return "not-found", "no such file"
    pristine = path.read_text()
    original, replacement = (row[k].replace(NEWLINE, "\n") for k in ("original", "replacement"))
    count = pristine.count(original)
    if count != 1:
        return "not-found", f"snippet occurs {count} times"
    try:
        path.write_text(pristine.replace(original, replacement))
        code, out = build(build_dir, jobs)
        if code != 0:
            errors = [l for l in out.splitlines() if "error" in l]
            return "build-failed", errors[0].strip() if errors else "build failed"
        hint = catchers.get(row["id"])
        if hint and not all_catchers:
            passed, failed = run_suite(build_dir, only=hint)
            if not passed:
                return "caught", failed[0]
        passed, failed = run_suite(build_dir)
        if passed:
            return "survived", ""
        return "caught", " ".join(failed) if all_catchers else failed[0]
    finally:
        path.write_text(pristine)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", nargs="+", metavar="ID", help="run only these rows")
    parser.add_argument("--allow-survivors", action="store_true",
                        help="exit 0 even if mutations survive or don't apply")
    parser.add_argument("--record", action="store_true",
                        help="write the results to tests/mutations.baseline")
    parser.add_argument("--work-dir", default=str(ROOT / "build-mutants"),
                        help="scratch source copy and build (default: build-mutants/)")
    parser.add_argument("--all-catchers", action="store_true",
                        help="run the whole suite on each mutation and list every failing test")
    parser.add_argument("--jobs", type=int, default=2)
    args = parser.parse_args()

    rows = load_catalog(CATALOG)
    if args.only:
        unknown = set(args.only) - {r["id"] for r in rows}
        if unknown:
            sys.exit(f"mutants: unknown ids: {' '.join(sorted(unknown))}")
        rows = [r for r in rows if r["id"] in args.only]
    catchers = load_baseline_catchers(BASELINE)

    work = Path(args.work_dir)
    src_dir, build_dir = work / "src", work / "build"
    src_dir.mkdir(parents=True, exist_ok=True)
    sync_tree(src_dir)
    if not (build_dir / "CMakeCache.txt").exists():
        code, out = run(["cmake", "-S", str(src_dir), "-B", str(build_dir), "-G", "Ninja",
                         "-DZELVA_BUILD_BENCH=OFF"])
        if code != 0:
            sys.exit("mutants: configure failed\n" + out)
    code, out = build(build_dir, args.jobs)
    if code != 0:
        sys.exit("mutants: the unmutated tree does not build\n" + out[-3000:])
    # With --only, the catchers tried first must pass unmutated (else a catch means nothing);
    # a row they miss is run against the whole suite anyway.
    hints = sorted({catchers[r["id"]] for r in rows if r["id"] in catchers})
    passed, failing = run_suite(build_dir, only=":".join(hints) if args.only and hints else None)
    failed = " ".join(failing)
    if not passed:
        sys.exit(f"mutants: the unmutated suite fails ({failed}); fix that first")

    results = []
    started = time.monotonic()
    for row in rows:
        t0 = time.monotonic()
        outcome, detail = try_mutation(row, src_dir, build_dir, args.jobs, catchers,
                                        args.all_catchers)
        results.append((row["id"], outcome, detail))
        print(f"{row['id']:<22} {outcome:<12} {detail}  ({time.monotonic() - t0:.0f} s)",
              flush=True)
    # Leave the scratch build matching the pristine tree for the next run.
    build(build_dir, args.jobs)
    elapsed = time.monotonic() - started

    caught = sum(1 for _, o, _ in results if o == "caught")
    survived = sum(1 for _, o, _ in results if o == "survived")
    not_applicable = len(results) - caught - survived
    summary = f"{caught} caught, {survived} survived, {not_applicable} not applicable"
    print(f"{summary} ({elapsed / 60:.1f} min, {elapsed / max(len(results), 1):.0f} s each)")
    for rid, outcome, detail in results:
        if outcome != "caught":
            print(f"  {outcome}: {rid} {detail}")

    if args.record:
        record_baseline(load_catalog(CATALOG), results, elapsed)

    if (survived or not_applicable) and not args.allow_survivors:
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
