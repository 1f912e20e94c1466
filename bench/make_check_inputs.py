#!/usr/bin/env python3
"""Writes a generated white-list policy and URLs to decide against it, for measuring
`sentrel check` as a whole process (time, peak memory). The same arguments give the same files.

    bench/make_check_inputs.py --entries 1000000 --urls 1000000 --out /tmp/check-inputs

gives policy.xml (UTF-8; --utf16 for UTF-16LE with a byte order mark) and urls.txt, one URL a
line, half of them under an entry and half under none."""

import argparse
import os
import random

LETTERS = "abcdefghijklmnopqrstuvwxyz"
TOP_LEVEL = ["com", "net", "org", "de", "io", "uk", "fr", "info", "edu", "nl"]
PORTS = [":8080", ":8443", ":81", ":3128"]


def word(rng, low, high):
    return "".join(rng.choice(LETTERS) for _ in range(rng.randint(low, high)))


def host(rng, labels):
    return ".".join([word(rng, 3, 12) for _ in range(labels - 1)] + [rng.choice(TOP_LEVEL)])


def path(rng, segments):
    return "".join("/" + word(rng, 2, 14) for _ in range(segments))


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--entries", type=int, default=1000000)
    parser.add_argument("--urls", type=int, default=1000000)
    parser.add_argument("--seed", type=int, default=11)
    parser.add_argument("--utf16", action="store_true")
    parser.add_argument("--out", required=True)
    options = parser.parse_args()
    rng = random.Random(options.seed)
    os.makedirs(options.out, exist_ok=True)

    entries = []
    parts = ["<WebFilters><WFVersion>1</WFVersion><WFRefreshMode>0</WFRefreshMode>"
             "<WhiteList><WLName>generated</WLName><WLAccepted>\n"]
    for _ in range(options.entries):
        scheme = rng.choice(["http"] * 10 + ["https"] * 9 + ["ftp"])
        entry_host = host(rng, rng.randint(2, 5))
        port = rng.choice(PORTS) if rng.random() < 0.1 else ""
        entry_path = path(rng, rng.randint(1, 3)) if rng.random() < 0.33 else ""
        entries.append((scheme, entry_host, port, entry_path))
        www = "www." if rng.random() < 0.3 else ""
        parts.append("<WLAEntry><WLAEntryName>entry</WLAEntryName><WLAEntryUrl>"
                     f"{scheme}://{www}{entry_host}{port}{entry_path}"
                     "</WLAEntryUrl></WLAEntry>\n")
    parts.append("</WLAccepted></WhiteList></WebFilters>\n")
    document = "".join(parts)
    with open(os.path.join(options.out, "policy.xml"), "wb") as file:
        if options.utf16:
            file.write(b"\xff\xfe" + document.encode("utf-16-le"))
        else:
            file.write(document.encode("utf-8"))

    with open(os.path.join(options.out, "urls.txt"), "w", encoding="utf-8") as file:
        for _ in range(options.urls // 2):
            scheme, entry_host, port, entry_path = rng.choice(entries)
            sub = "".join(word(rng, 3, 10) + "." for _ in range(rng.randint(0, 2)))
            scheme = scheme if scheme == "ftp" else rng.choice(["http", "https"])
            file.write(f"{scheme}://{sub}{entry_host}{port}{entry_path}"
                       f"{path(rng, rng.randint(0, 5))}\n")
            file.write(f"https://{host(rng, rng.randint(3, 6))}{path(rng, rng.randint(2, 7))}\n")


if __name__ == "__main__":
    main()
