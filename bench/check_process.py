#!/usr/bin/env python3
"""Measures `sentrel check` as a whole process: wall time and peak memory (from /usr/bin/time)
for a million URLs against 100,000 entries with loading included, the same URLs under
--type none through pipes, and a 1,000,000-entry policy. Several tools (for example the build
before and after a change) run interleaved, round by round, because a shared machine is noisy;
the medians are printed.

    bench/check_process.py --tool /tmp/before/sentrel --tool build/native/tools/sentrel

Inputs come from make_check_inputs.py and are kept in --inputs for the next run."""

import argparse
import os
import statistics
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))


def make_inputs(folder, entries):
    if not os.path.exists(os.path.join(folder, "urls.txt")):
        subprocess.run([sys.executable, os.path.join(HERE, "make_check_inputs.py"), "--entries",
                        str(entries), "--urls", "1000000", "--out", folder], check=True)
    return os.path.join(folder, "policy.xml"), os.path.join(folder, "urls.txt")


def measure(command):
    """Wall seconds and peak resident kilobytes of a shell command's last process."""
    result = subprocess.run(["/usr/bin/time", "-f", "%e %M", "sh", "-c", command],
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True,
                            check=True)
    seconds, kilobytes = result.stderr.strip().splitlines()[-1].split()
    return float(seconds), int(kilobytes)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--tool", action="append", required=True)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--inputs", default="/tmp/sentrel-check-inputs")
    options = parser.parse_args()
    policy, urls = make_inputs(os.path.join(options.inputs, "100k"), 100000)
    large, _ = make_inputs(os.path.join(options.inputs, "1m"), 1000000)
    cases = {
        "1M URLs, 100k entries (s)": (f"{{tool}} check --policy {policy} < {urls}", 0),
        "--type none through pipes (s)":
            (f"cat {urls} | {{tool}} check --type none --policy {policy} | cat", 0),
        "1M entries, peak (MB)": (f"{{tool}} check --policy {large} < {urls}", 1),
    }
    figures = {(case, tool): [] for case in cases for tool in options.tool}
    for _ in range(options.rounds):
        for case, (command, which) in cases.items():
            for tool in options.tool:
                figure = measure(command.format(tool=tool))[which]
                figures[(case, tool)].append(figure if which == 0 else figure / 1024)
    for case in cases:
        for tool in options.tool:
            values = figures[(case, tool)]
            print(f"{case:32} {statistics.median(values):9.2f}  {tool}  "
                  f"({' '.join(f'{v:.2f}' for v in values)})")


if __name__ == "__main__":
    main()
