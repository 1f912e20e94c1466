#!/usr/bin/env python3
"""Measures `sentrel import` as a whole process: wall time and peak memory (from /usr/bin/time)
for a generated list of 1,000,000 lines per format, written as a UTF-8 document. Several tools run
interleaved, round by round, because a shared machine is noisy; the medians are printed.

    bench/import_process.py --tool build/native/tools/sentrel

The lists are kept in --inputs for the next run."""

import argparse
import os
import random
import statistics

from check_process import measure

LINES = 1000000


def domain(rng, i):
    labels = ["ads", "track", "cdn", "pixel", "metrics", "srv", "img", "stat"]
    tlds = ["com", "net", "org", "example", "io", "de"]
    return f"{rng.choice(labels)}{i}.{rng.choice(labels)}-{i % 997}.{rng.choice(tlds)}"


def make_inputs(folder):
    """Realistic mixes: comments, upper case, trailing dots, subdomains of listed domains."""
    os.makedirs(folder, exist_ok=True)
    makers = {
        "domains": lambda rng, i, name: ("# section\n" if i % 1000 == 0 else "") +
                                          (name.upper() + "." if i % 50 == 0 else name),
        "hosts": lambda rng, i, name: f"0.0.0.0 {name}",
        "urls": lambda rng, i, name: f"{name}/path/{i % 7}",
        "adblock": lambda rng, i, name: f"||{name}^" + ("$important" if i % 9 == 0 else ""),
    }
    paths = {}
    for kind, make in makers.items():
        path = os.path.join(folder, f"{kind}.txt")
        paths[kind] = path
        if os.path.exists(path):
            continue
        rng = random.Random(1)
        with open(path, "w") as out:
            for i in range(LINES):
                name = domain(rng, i)
                if i % 10 == 1:
                    name = "sub." + domain(random.Random(i - 1), i - 1)  # a subdomain of the last
                out.write(make(rng, i, name) + "\n")
    return paths


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--tool", action="append", required=True)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--inputs", default="/tmp/sentrel-import-inputs")
    options = parser.parse_args()
    paths = make_inputs(options.inputs)
    out = os.path.join(options.inputs, "out.xml")
    figures = {(kind, tool): [] for kind in paths for tool in options.tool}
    for _ in range(options.rounds):
        for kind, path in paths.items():
            for tool in options.tool:
                figures[(kind, tool)].append(
                    measure(f"{tool} import --format {kind} {path} --out {out}"))
    for (kind, tool), values in figures.items():
        seconds = statistics.median(v[0] for v in values)
        megabytes = statistics.median(v[1] for v in values) / 1024
        print(f"1M {kind:8} lines: {seconds:6.2f} s  peak {megabytes:7.1f} MB  {tool}  "
              f"({' '.join(f'{v[0]:.2f}' for v in values)})")


if __name__ == "__main__":
    main()
