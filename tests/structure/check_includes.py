#!/usr/bin/env python3
"""Checks who includes whom: only along the arrows of the README's two tables, without a circle.

A room is a folder with what lies below it, apart from rooms of their own there. The tables of the
README's section "Layout" say for each room which others it may include.

usage: check_includes.py ROOT     status 1, and a line for each include that is not allowed
       check_includes.py --arrows ROOT     the arrows that there are, as a table to compare
"""

import collections
import pathlib
import posixpath
import re
import sys

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')
SOURCES = ("*.h", "*.cpp")
# Include paths beside the folders that are called include.
PRIVATE = ("pipeline", "tools/zsl", "tests", "bench", "sdk/selector")
EVERYTHING = "everything"  # but those who may include everything themselves
ROW = re.compile(r"^\| (`[^|]+/`) \|.*\|([^|]*)\|$")
FOLDERS = re.compile(r"`([^`]+)/`")


def read_table(readme):
    """{room: the rooms that it may include}, from the rows of the section's tables."""
    section = re.search(r"^## Layout\n(.*?)(?=^## |\Z)", readme, re.DOTALL | re.MULTILINE)
    if not section:
        sys.exit("README.md: has no section 'Layout'")
    table, inner, outer = {}, {}, None
    for line in section.group(1).splitlines():
        # The second table is of the rooms within one of the first table's.
        if heading := re.match(r"^Within `([^`]+)/`", line):
            outer = heading.group(1)
        if row := ROW.match(line):
            targets = set(FOLDERS.findall(row.group(2)))
            for room in FOLDERS.findall(row.group(1)):
                (inner if outer else table)[room] = (
                    {EVERYTHING} if row.group(2).strip() == EVERYTHING else targets)
    rooms = {f"{outer}/{room}": table[outer] | {f"{outer}/{target}" for target in targets}
             for room, targets in inner.items()}
    if outer:
        table[outer] = table[outer] | set(rooms)
    table |= rooms
    others = {room for room, targets in table.items() if EVERYTHING not in targets}
    return {room: others if EVERYTHING in targets else targets for room, targets in table.items()}


class Tree:
    """The sources of a tree, with their rooms and what they include of it."""

    def __init__(self, root, rooms):
        self.root = root
        self.rooms = sorted(rooms, key=len, reverse=True)
        self.files = {path.relative_to(root).as_posix() for top in {r.split("/")[0] for r in rooms}
                      for kind in SOURCES for path in (root / top).rglob(kind)}
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
        for folder in (own, *self.public, *PRIVATE):
            if f"{folder}/{included}" in self.files:
                return f"{folder}/{included}"
        return None

    def includes(self):
        """(file, line number, included file) of every include of a file of the tree."""
        for name in sorted(self.files):
            text = (self.root / name).read_text(encoding="utf-8")
            for number, line in enumerate(text.splitlines(), 1):
                if match := INCLUDE.match(line):
                    if target := self.target_of(name, *match.groups()):
                        yield name, number, target


def circle(edges):
    """The nodes of one circle in {node: its followers}, the first again at the end; None without."""
    done, path = set(), []

    def visit(node):
        if node in path:
            return path[path.index(node):] + [node]
        if node in done:
            return None
        path.append(node)
        for follower in sorted(edges.get(node, ())):
            if found := visit(follower):
                return found
        path.pop()
        done.add(node)
        return None

    return next(filter(None, map(visit, sorted(edges))), None)


def faults(tree, table):
    allowed = {room: targets | {room} for room, targets in table.items()}
    headers = collections.defaultdict(set)
    for name, number, target in tree.includes():
        room, other = tree.room_of(name), tree.room_of(target)
        if room and other and other not in allowed[room]:
            yield f"{name}:{number}: includes {target}, and {room} -> {other} is not allowed"
        if target.endswith(".h") and name.endswith(".h"):
            headers[name].add(target)
    for name in sorted(tree.files):
        if not tree.room_of(name):
            yield f"{name}: in no room of the README's tables"
    if found := circle(headers):
        yield "headers include each other: " + " -> ".join(found)
    if found := circle(table):
        yield "the README's tables allow a circle: " + " -> ".join(found)
    for room, targets in sorted(table.items()):
        for missing in sorted(targets - set(table)):
            yield f"README.md: {room} may include {missing}, which is no room"


def main(arguments):
    root = pathlib.Path(arguments[-1])
    table = read_table((root / "README.md").read_text(encoding="utf-8"))
    tree = Tree(root, table)
    if arguments[0] == "--arrows":
        arrows = collections.Counter()
        for name, _, target in tree.includes():
            if tree.room_of(name) != tree.room_of(target):
                arrows[tree.room_of(name), tree.room_of(target)] += 1
        for (room, other), count in sorted(arrows.items(), key=str):
            mark = "" if other in table.get(room, ()) else "   NOT ALLOWED"
            print(f"{room} -> {other}  {count}{mark}")
        return 0
    found = list(faults(tree, table))
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
