#!/usr/bin/env python3
"""Checks that a library is hardened, and keeps within its budgets.

usage: check_elf.py READELF LIBRARY INITIALISERS BYTES

INITIALISERS is how many sources may have something to construct when the library is loaded, BYTES
bounds what a process maps of it.
"""

import re
import subprocess
import sys

PAGE = 0x4000
POINTER = 8
# Which a fortified build does not call: they have a checked form (`__snprintf_chk`).
UNCHECKED = r"v?s?n?printf|v?fprintf"


def faults(text, initialisers, limit):
    loads = re.findall(r"^ +LOAD +0x\w+ 0x(\w+) 0x\w+ 0x\w+ 0x(\w+) (...) 0x(\w+)$", text, re.MULTILINE)
    mapped = sum(int(size, 16) for _, size, _, _ in loads)
    stack = re.search(r"^ +GNU_STACK .* (...) 0x\w+$", text, re.MULTILINE)
    dynamic = re.findall(r"^ 0x\w+ \((\w+)\) +(.*)$", text, re.MULTILINE)
    tags = {tag for tag, _ in dynamic}
    flags = " ".join(value for tag, value in dynamic if tag in ("FLAGS", "FLAGS_1"))
    undefined = set(re.findall(r" UND ([\w]+)", text))
    array = re.search(r"\.init_array +INIT_ARRAY +\w+ \w+ (\w+) ", text)
    # The compiler's own start-up code has one.
    count = int(array.group(1), 16) // POINTER - 1 if array else 0
    unchecked = sorted(name for name in undefined if re.fullmatch(UNCHECKED, name))
    found = [
        (not loads, "has no segments"),
        (not re.search(r"^ +GNU_RELRO ", text, re.MULTILINE), "has no read-only relocations (RELRO)"),
        ("BIND_NOW" not in tags and "BIND_NOW" not in flags and "NOW" not in flags,
         "binds symbols late (no BIND_NOW)"),
        ("TEXTREL" in tags or "TEXTREL" in flags, "has relocations in its code"),
        (stack is None or "E" in stack.group(1), "has an executable stack"),
        (any("W" in access and "E" in access for _, _, access, _ in loads),
         "has a segment that is writable and executable"),
        (any(int(align, 16) < PAGE for _, _, _, align in loads),
         f"has segments that do not lie on pages of {PAGE} bytes"),
        ("__stack_chk_fail" not in undefined, "has no stack protector"),
        (count > initialisers,
         f"constructs something for {count} sources when it is loaded, of at most {initialisers}"),
        (mapped > limit, f"maps {mapped} bytes, of at most {limit}"),
        (unchecked, f"calls {', '.join(unchecked)} without checks of sizes"),
    ]
    return [fault for is_so, fault in found if is_so], mapped


def main(readelf, library, initialisers, limit):
    text = subprocess.run([readelf, "-W", "--program-headers", "--section-headers", "--dynamic",
                           "--dyn-syms", library], check=True, capture_output=True, text=True).stdout
    found, mapped = faults(text, int(initialisers), int(limit))
    for fault in found:
        print(f"{library}: {fault}")
    print(f"{library}: {mapped} bytes mapped")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
