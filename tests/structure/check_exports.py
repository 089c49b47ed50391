#!/usr/bin/env python3
"""Checks that the processor's library exports its interface and nothing else."""

import re
import subprocess
import sys

INTERFACE = "NSCam::v3::pipeline::model::IZslProcessor"
WANTED = [
    rf"{INTERFACE}::createInstance\(int, std::.*\)",
    f"vtable for {INTERFACE}",
    f"VTT for {INTERFACE}",
    f"typeinfo for {INTERFACE}",
    f"typeinfo name for {INTERFACE}",
]


def main(nm: str, library: str) -> int:
    listing = subprocess.run([nm, "-D", "--defined-only", "-C", library],
                             check=True, capture_output=True, text=True).stdout
    symbols = [line.split(maxsplit=2)[2] for line in listing.splitlines()]
    surplus = [s for s in symbols if not any(re.fullmatch(w, s) for w in WANTED)]
    missing = [w for w in WANTED if not any(re.fullmatch(w, s) for s in symbols)]
    for symbol in surplus:
        print(f"{library}: exports {symbol}")
    for symbol in missing:
        print(f"{library}: does not export {symbol}")
    return 1 if surplus or missing else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
