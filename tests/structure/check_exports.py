#!/usr/bin/env python3
"""Checks that a library exports its interface class and nothing else."""

import re
import subprocess
import sys

NAMESPACE = "NSCam::v3::pipeline::model::"


def wanted(interface: str, factory: str) -> list[str]:
    name = NAMESPACE + interface
    return [
        rf"{name}::{factory}\(int, .*\)",
        rf"{name}::~{interface}\(\)",  # this and the thunk for whoever derives from the class
        rf"virtual thunk to {name}::~{interface}\(\)",
        f"vtable for {name}",
        f"VTT for {name}",
        f"typeinfo for {name}",
        f"typeinfo name for {name}",
    ]


def main(nm: str, library: str, interface: str, factory: str) -> int:
    exports = wanted(interface, factory)
    listing = subprocess.run([nm, "-D", "--defined-only", "-C", library],
                             check=True, capture_output=True, text=True).stdout
    symbols = [line.split(maxsplit=2)[2] for line in listing.splitlines()]
    surplus = [s for s in symbols if not any(re.fullmatch(w, s) for w in exports)]
    missing = [w for w in exports if not any(re.fullmatch(w, s) for s in symbols)]
    for symbol in surplus:
        print(f"{library}: exports {symbol}")
    for symbol in missing:
        print(f"{library}: does not export {symbol}")
    return 1 if surplus or missing else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
