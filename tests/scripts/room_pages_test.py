"""Compares the pages that draw the rooms of the tree with what CMake was told.

usage: room_pages_test.py ROOMS_JSON ROOT

CONTRIBUTING.md draws which room may use which, docs/architecture.md lists the rooms in the order of
dependency. The folders of tests and benchmarks are in neither.
"""

import json
import pathlib
import re
import sys
import unittest

ROOMS = ""
ROOT = ""


def is_product(folder):
    return not re.search(r"(^|/)(tests|bench)(/|$)", folder)


def drawn_edges(page):
    """The arrows of the indented lines: "a, b -> c -> d" gives (a, c), (b, c) and (c, d)."""
    edges = set()
    for line in re.findall(r"^    (.*->.*)$", page, re.MULTILINE):
        groups = [[re.sub(r" \(.*\)$", "", name.strip()) for name in group.split(",")]
                  for group in line.split("->")]
        for used, users in zip(groups, groups[1:]):
            edges |= {(a, b) for a in used for b in users}
    return edges


def listed_rooms(page):
    """The rows "| `folder/` | `target` | ..." of a table."""
    return re.findall(r"^\| `([\w/-]+)/` \| `(\w+)` \|", page, re.MULTILINE)


class Pages(unittest.TestCase):
    def setUp(self):
        self.rooms = [room for room in json.loads(pathlib.Path(ROOMS).read_text(encoding="utf-8"))
                      if is_product(room["folder"])]

    def page(self, name):
        return pathlib.Path(ROOT, name).read_text(encoding="utf-8")

    def test_the_drawing_is_what_the_rooms_depend_on(self):
        edges = {(used, room["folder"]) for room in self.rooms for used in room["uses"]}
        self.assertGreater(len(edges), 0)
        self.assertEqual(drawn_edges(self.page("CONTRIBUTING.md")), edges)

    def test_the_table_lists_every_room_in_order(self):
        rooms = [(room["folder"], room["target"]) for room in self.rooms]
        self.assertGreater(len(rooms), 0)
        self.assertEqual(listed_rooms(self.page("docs/architecture.md")), rooms)


class Readers(unittest.TestCase):
    def test_arrows(self):
        self.assertEqual(drawn_edges("x -> y\n    a, b/c -> d (its library) -> e\n    no arrow\n"),
                         {("a", "d"), ("b/c", "d"), ("d", "e")})

    def test_rows(self):
        self.assertEqual(listed_rooms("| folder | target |\n| --- | --- |\n| `a/b/` | `qf_b` | x |\n"
                                      "| `c/`, `d/` | | y |\n"), [("a/b", "qf_b")])


if __name__ == "__main__":
    ROOMS, ROOT = sys.argv[1:3]
    unittest.main(argv=sys.argv[:1])
