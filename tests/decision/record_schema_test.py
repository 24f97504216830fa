"""Validates records against the published schema, with a validator that is not ours.

usage: record_schema_test.py PROGRAM SCHEMA COUNT

PROGRAM prints COUNT random records, each whole and brief. The schema has to accept them all, also
when it is made to refuse members that it does not name; and it has to refuse what is wrong.
"""

import copy
import json
import os
import pathlib
import re
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True

from schemas import closed, met, named, words

try:
    from jsonschema import Draft202012Validator
except ImportError:
    print("needs the package python3-jsonschema")
    sys.exit(1 if os.environ.get("CI") == "true" else 77)

PROGRAM, SCHEMA, COUNT = sys.argv[1], sys.argv[2], int(sys.argv[3])


class Schema(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(SCHEMA, encoding="utf-8") as file:
            cls.schema = json.load(file)
        out = subprocess.run([PROGRAM, str(COUNT)], stdout=subprocess.PIPE, check=True).stdout
        cls.records = [json.loads(line) for line in out.decode("utf-8").splitlines()]

    def first_error(self, schema, record):
        error = next(Draft202012Validator(schema).iter_errors(record), None)
        return error and f"{list(error.absolute_path)}: {error.message}"

    def test_the_schema_is_one(self):
        Draft202012Validator.check_schema(self.schema)

    def test_random_records(self):
        self.assertEqual(len(self.records), 2 * COUNT)
        for schema in (self.schema, closed(self.schema)):
            for record in self.records[::1 if schema is not self.schema else 10]:
                self.assertIsNone(self.first_error(schema, record), record)

    def test_every_member_occurs(self):
        """What the schema names is what is written."""
        self.assertEqual(named(self.schema) - met(self.records), set())

    def test_the_page_tells_of_every_member_and_word(self):
        page = pathlib.Path(SCHEMA).with_name("decision-record.md").read_text(encoding="utf-8")
        told = set(re.findall(r"\w+", " ".join(re.findall(r"`[^`]*`", page))))
        self.assertEqual((named(self.schema) | words(self.schema)) - told, set())

    def test_what_is_wrong(self):
        good = next(r for r in self.records if r["rules"] and r["dns"] and "source" in r["rules"][0])

        def damaged(change):
            record = copy.deepcopy(good)
            change(record)
            return self.first_error(self.schema, record)

        self.assertIsNone(damaged(lambda r: r.update(later=1)))
        for change in (
                lambda r: r.update(schema="quillfence.decision/2"),
                lambda r: r.pop("id"),
                lambda r: r.update(time="yesterday"),
                lambda r: r["decision"].update(verdict="maybe"),
                lambda r: r["rules"][0].update(decision="HIT"),
                lambda r: r["rules"][0].update(source={}),
                lambda r: r["rules"][0].update(source="<built-in>"),
                lambda r: r["rules"][0].update(n=0),
                lambda r: r["rules"][0].update(us=-1),
                lambda r: r["dns"][0].update({"class": "unknown"}),
                lambda r: r["dns"][0].pop("records"),
                lambda r: r["transaction"].update(tls=0),
                lambda r: r["transaction"].update(helo_bytes="f"),
                lambda r: r.update(report={}),
                lambda r: r.update(missing=[{"what": "luck"}])):
            self.assertIsNotNone(damaged(change))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
