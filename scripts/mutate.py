#!/usr/bin/env python3
"""Measures how many planted faults the tests catch.

Each row of scripts/mutations.tsv is one fault: a text to find in a source file (it must occur
there exactly once), its replacement, and the test programs (ctest names) that should catch it.
For each row the script plants the fault in a copy of the tree, rebuilds only those programs,
runs only them, and puts the source back. A test that fails or outlasts the time limit kills the
mutant; a fault that does not compile is invalid and not counted. The table and the kill rate
are printed at the end.

The copy lives in build/mutants/tree, with build/native and build/windows inside it configured
as scripts/test.sh configures them, so that each mutant is an incremental build (and ccache
serves the first one). --in-place plants the faults in this tree and uses its own build/native
and build/windows instead (the source is put back also on Ctrl-C).

Rows: id, file, tests, find, replace, separated by tabs; '#' starts a comment line. In find and
replace, ⏎ stands for a line break. A file that has moved is found by its name under src/ and
tools/.
"""
import argparse
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
TABLE = ROOT / "scripts" / "mutations.tsv"
WORK = ROOT / "build" / "mutants"


class Row:
    def __init__(self, line):
        fields = line.rstrip("\n").split("\t")
        if len(fields) != 5:
            raise ValueError(f"{TABLE.name}: expected 5 tab-separated fields: {line!r}")
        self.id, self.file, tests, find, replace = fields
        self.tests = [t for t in tests.split(",") if t]
        self.find, self.replace = find.replace("⏎", "\n"), replace.replace("⏎", "\n")
        self.result, self.detail, self.seconds = "", "", 0.0

    def locate(self, tree):
        """The file in tree (by its name under src/ and tools/ when it has moved), or a reason."""
        path = tree / self.file
        if not path.exists():
            found = [p for d in ("src", "tools") for p in (tree / d).rglob(Path(self.file).name)]
            if len(found) != 1:
                return None, f"{self.file} not found"
            path = found[0]
        count = path.read_bytes().count(self.find.encode())
        return (path, "") if count == 1 else (None, f"text found {count} times")


def run(command, log, timeout=None, **kwargs):
    """Runs command with its output appended to log; the exit status, or None on timeout."""
    with open(log, "a") as out:
        out.write(f"$ {' '.join(map(str, command))}\n")
        out.flush()
        process = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT,
                                   start_new_session=True, **kwargs)
        try:
            return process.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return None


def sync_copy():
    """Brings build/mutants/tree up to this tree's files (tracked and untracked, not ignored),
    touching only what differs so that builds stay incremental."""
    tree = WORK / "tree"
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "-co", "--exclude-standard"],
                            check=True, capture_output=True).stdout.decode().split("\0")
    wanted = {name for name in listed if name and (ROOT / name).is_file()}
    for name in wanted:
        source, target = ROOT / name, tree / name
        if not target.exists() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(source, target)  # a fresh time stamp, so that builds see the change
        shutil.copymode(source, target)  # scripts that the build runs stay executable
    for path in tree.rglob("*"):
        relative = path.relative_to(tree)
        if relative.parts[0] != "build" and path.is_file() and str(relative) not in wanted:
            path.unlink()
    return tree


class Platform:
    def __init__(self, name, tree, jobs, logs):
        self.name, self.tree, self.jobs, self.logs = name, tree, jobs, logs
        self.build = tree / "build" / name
        self.durations, self.available = {}, set()

    def configure(self):
        if (self.build / "CMakeCache.txt").exists():
            return
        options = [f"-DCMAKE_{lang}_COMPILER_LAUNCHER=ccache" for lang in ("C", "CXX")
                   if shutil.which("ccache")]
        if self.name == "windows":
            options.append(f"-DCMAKE_TOOLCHAIN_FILE={self.tree}/cmake/mingw-w64.cmake")
        build_type = "RelWithDebInfo" if self.name == "windows" else "Release"
        command = ["cmake", "-S", self.tree, "-B", self.build, f"-DCMAKE_BUILD_TYPE={build_type}",
                   "-DSENTREL_WERROR=ON", *options]
        if run(command, self.logs / f"configure-{self.name}.log") != 0:
            sys.exit(f"mutate: configuring {self.build} failed (see {self.logs})")

    def tests(self):
        listed = subprocess.run(["ctest", "--test-dir", self.build, "-N"], check=True,
                                capture_output=True, text=True).stdout
        return set(re.findall(r"Test\s+#\d+: (\S+)", listed))

    def build_targets(self, targets, log):
        return run(["cmake", "--build", self.build, f"-j{self.jobs}", "--target", *targets],
                   log) == 0

    def run_tests(self, tests, log, timeout, baseline=False):
        """(status, failed tests): status is 'passed', 'failed', 'timeout' or 'error'."""
        start = log.stat().st_size if log.exists() else 0
        command = ["ctest", "--test-dir", self.build, "--output-on-failure", f"-j{self.jobs}",
                   "-R", "^(" + "|".join(map(re.escape, tests)) + ")$"]
        status = run(command + ([] if baseline else ["--stop-on-failure"]), log, timeout)
        output = log.read_bytes()[start:].decode(errors="replace")
        if baseline:  # its times set the mutants' time limits
            for name, secs in re.findall(r"Test\s+#\d+: (\S+) \.+[^\n]*?([\d.]+) sec", output):
                self.durations[name] = float(secs)
        if status is None:
            if self.name == "windows":  # what the killed run left running in its prefix
                subprocess.run(["wineserver", "-k"], env={**os.environ,
                               "WINEPREFIX": str(self.build / "wineprefix")}, check=False)
            return "timeout", []
        failed = [name for name, why in re.findall(r"^\s*\d+ - (\S+) \(([^)]*)\)", output, re.M)
                  if name in tests and why != "Not Run"]
        if status == 0:
            return "passed", []
        return ("failed", failed) if failed else ("error", [])


def mutate_one(row, tree, platforms, args):
    path, problem = row.locate(tree)
    if path is None:
        row.result, row.detail = "stale", problem
        return
    log = args.logs / f"{row.id}.log"
    log.unlink(missing_ok=True)
    original = path.read_bytes()
    started = time.monotonic()
    try:
        path.write_bytes(original.replace(row.find.encode(), row.replace.encode()))
        row.result, row.detail = "skipped", "no test of this row on the chosen platforms"
        for platform in platforms:
            tests = [t for t in row.tests if t in platform.available]
            if not tests:
                continue
            if not platform.build_targets(tests, log):
                row.result, row.detail = "invalid", f"{platform.name}: does not build"
                return
            limit = args.timeout or max(60.0, 3 * sum(platform.durations.get(t, 60) for t in tests))
            status, failed = platform.run_tests(tests, log, limit)
            if status in ("failed", "timeout"):
                row.result = "killed"
                row.detail = f"{platform.name}: " + (", ".join(failed) or f"timeout {limit:.0f}s")
                return
            if status == "error":
                row.result, row.detail = "error", f"{platform.name}: ctest failed (see {log})"
                return
            row.result, row.detail = "survived", ""
    finally:
        path.write_bytes(original)  # also newer than the mutant's objects, so it is rebuilt
        row.seconds = time.monotonic() - started


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("ids", nargs="*", help="regular expressions; only rows whose id matches")
    parser.add_argument("--platform", choices=["native", "windows", "both"], default="native")
    parser.add_argument("-j", "--jobs", type=int, default=2)
    parser.add_argument("--timeout", type=float,
                        help="seconds per mutant and platform (default: 3 times the tests' time)")
    parser.add_argument("--in-place", action="store_true",
                        help="plant faults in this tree and use its build/native, build/windows")
    parser.add_argument("--check", action="store_true", help="only check that every row applies")
    parser.add_argument("--no-baseline", action="store_true",
                        help="skip the run of the unchanged tests first")
    args = parser.parse_args()
    os.environ.setdefault("CCACHE_BASEDIR", str(ROOT.parent))
    os.environ.setdefault("CCACHE_NOHASHDIR", "1")
    for stop in (signal.SIGTERM, signal.SIGHUP):  # the source is put back on the way out
        signal.signal(stop, lambda *_: sys.exit("mutate: stopped"))

    rows = [Row(line) for line in TABLE.read_text(encoding="utf-8").splitlines(True)
            if line.strip() and not line.startswith("#")]
    duplicates = {r.id for r in rows if sum(o.id == r.id for o in rows) > 1}
    if duplicates:
        sys.exit(f"mutate: ids used twice: {', '.join(sorted(duplicates))}")
    rows = [r for r in rows if not args.ids or any(re.search(p, r.id) for p in args.ids)]
    if args.check:
        stale = [(r, r.locate(ROOT)[1]) for r in rows if r.locate(ROOT)[0] is None]
        for row, problem in stale:
            print(f"stale {row.id}: {row.file}: {problem}")
        print(f"{len(rows) - len(stale)} of {len(rows)} rows apply")
        return 1 if stale else 0

    args.logs = WORK / "logs"
    args.logs.mkdir(parents=True, exist_ok=True)
    tree = ROOT if args.in_place else sync_copy()
    names = ["native", "windows"] if args.platform == "both" else [args.platform]
    platforms = [Platform(name, tree, args.jobs, args.logs) for name in names]
    for platform in platforms:
        platform.configure()
        platform.available = platform.tests()
        needed = sorted({t for r in rows for t in r.tests} & platform.available)
        if args.no_baseline or not needed:
            continue
        print(f"baseline ({platform.name}): building and running {', '.join(needed)}", flush=True)
        log = args.logs / f"baseline-{platform.name}.log"
        log.unlink(missing_ok=True)
        if not platform.build_targets(needed, log):
            sys.exit(f"mutate: the unchanged tree does not build (see {log})")
        status, failed = platform.run_tests(needed, log, None, baseline=True)
        if status != "passed":
            sys.exit(f"mutate: the unchanged tests do not pass: {failed or status} (see {log})")

    for number, row in enumerate(rows, 1):
        mutate_one(row, tree, platforms, args)
        print(f"[{number}/{len(rows)}] {row.id}: {row.result} {row.detail} ({row.seconds:.0f}s)",
              flush=True)

    width = max(len(r.id) for r in rows)
    print(f"\n{'id':<{width}}  {'result':<8}  {'seconds':>7}  file / detail")
    for row in rows:
        print(f"{row.id:<{width}}  {row.result:<8}  {row.seconds:7.0f}  {row.file} {row.detail}")
    killed = sum(r.result == "killed" for r in rows)
    survived = [r.id for r in rows if r.result == "survived"]
    counted = killed + len(survived)
    others = {k: sum(r.result == k for r in rows) for k in ("invalid", "stale", "error", "skipped")}
    print(f"\nkilled {killed} of {counted}" + (f" ({100 * killed / counted:.1f}%)" if counted else "")
          + "".join(f", {k} {n}" for k, n in others.items() if n))
    if survived:
        print("survived: " + " ".join(survived))
    return 0


if __name__ == "__main__":
    sys.exit(main())
