#!/usr/bin/env python3
"""Checks who includes whom: only along the arrows of the README's two tables, without a circle.

A room is a folder with what lies below it, apart from rooms of their own there. The tables of the
README's section "Layout" say for each room which others it may include.

usage: check_includes.py ROOT     status 1, and a line for each include that is not allowed
"""

import collections
import graphlib
import pathlib
import posixpath
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
# Include paths beside the folders that are called include.
PRIVATE = ("pipeline", "tools/zsl", "tests", "bench", "sdk/selector")
EVERYTHING = "everything"  # but those who may include everything themselves
ROW = re.compile(r"^\| (`[^|]+/`) \|.*\|([^|]*)\|$")
FOLDERS = re.compile(r"`([^`]+)/`")


def read_table(readme):
    """{room: the rooms that it may include}, from the rows of the section's tables."""
    table, outer, everywhere = {}, None, set()
    for line in readme.split("\n## Layout\n")[1].split("\n## ")[0].splitlines():
        # The second table is of the rooms within one of the first table's.
        if heading := re.match(r"^Within `([^`]+)/`", line):
            outer = heading.group(1)
        for room in FOLDERS.findall(row.group(1)) if (row := ROW.match(line)) else ():
            targets = set(FOLDERS.findall(row.group(2)))
            if row.group(2).strip() == EVERYTHING:
                everywhere.add(room)
            if outer:
                room, targets = f"{outer}/{room}", {f"{outer}/{target}" for target in targets}
            table[room] = targets
    for room in [room for room in table if outer and room.startswith(outer + "/")]:
        table[room] |= table[outer] - {r for r in table if r.startswith(outer + "/")}
        table[outer].add(room)
    return table | {room: set(table) - everywhere for room in everywhere}


class Tree:
    """The sources of a tree, with their rooms and what they include of it."""

    def __init__(self, root, rooms):
        self.root = root
        self.rooms = sorted(rooms, key=len, reverse=True)
        self.files = {path.relative_to(root).as_posix() for top in {r.split("/")[0] for r in rooms}
                      for kind in ("*.h", "*.cpp") for path in (root / top).rglob(kind)}
        self.public = sorted({name.split("/include/")[0] + "/include"
                              for name in self.files if "/include/" in name})

    def room_of(self, name):
        return next((room for room in self.rooms if name.startswith(room + "/")), None)

    def target_of(self, name, quote, included):
        """The file of the tree that an include of file `name` means; None for one from elsewhere."""
        beside = posixpath.normpath(posixpath.join(posixpath.dirname(name), included))
        if quote == '"' and beside in self.files:
            return beside
        # On the include path: first the own part of the tree, for its names are taken elsewhere too.
        own = "/".join(name.split("/")[:2])
        paths = (f"{folder}/{included}" for folder in (own, *self.public, *PRIVATE))
        return next((path for path in paths if path in self.files), None)

    def includes(self):
        """(file, line number, included file) of every include of a file of the tree."""
        for name in sorted(self.files):
            text = (self.root / name).read_text(encoding="utf-8")
            for number, line in enumerate(text.splitlines(), 1):
                match = INCLUDE.match(line)
                if match and (target := self.target_of(name, *match.groups())):
                    yield name, number, target


def circle(what, edges):
    """Tells of a circle in {node: its followers}, if there is one."""
    try:
        graphlib.TopologicalSorter(edges).prepare()
    except graphlib.CycleError as error:
        yield f"{what}: " + " -> ".join(reversed(error.args[1]))


def faults(tree, table):
    headers = collections.defaultdict(list)
    for name, number, target in tree.includes():
        room, other = tree.room_of(name), tree.room_of(target)
        if room and other and other not in table[room] | {room}:
            yield f"{name}:{number}: includes {target}, and {room} -> {other} is not allowed"
        if target.endswith(".h") and name.endswith(".h"):
            headers[name].append(target)
    yield from (f"{name}: in no room of the README's tables"
                for name in sorted(tree.files) if not tree.room_of(name))
    yield from circle("headers include each other", headers)
    yield from circle("the README's tables allow a circle", table)
    for room, targets in sorted(table.items()):
        yield from (f"README.md: {room} may include {missing}, which is no room"
                    for missing in sorted(targets - set(table)))


def main(root):
    root = pathlib.Path(root)
    table = read_table((root / "README.md").read_text(encoding="utf-8"))
    found = list(faults(Tree(root, table), table))
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
