"""Validates cases against the published schema, with a validator that is not ours.

usage: case_schema_test.py PROGRAM SCHEMA COUNT

PROGRAM prints COUNT random cases. The schema, which refers to that of the decision record beside
it, has to accept them all and the examples, also when both are made to refuse members that they do
not name; and it has to refuse what is wrong.
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
    from jsonschema import Draft202012Validator, RefResolver
except ImportError:
    print("needs the package python3-jsonschema")
    sys.exit(1 if os.environ.get("CI") == "true" else 77)

PROGRAM, SCHEMA, COUNT = sys.argv[1], pathlib.Path(sys.argv[2]), int(sys.argv[3])
RECORD = SCHEMA.with_name("decision-record.schema.json")


def loaded(path):
    return json.loads(path.read_text(encoding="utf-8"))


def validator(change):
    """Of the schema, after a change to it and to the one that it refers to."""
    schema = change(loaded(SCHEMA))
    resolver = RefResolver(SCHEMA.as_uri(), schema, store={RECORD.as_uri(): change(loaded(RECORD))})
    return Draft202012Validator(schema, resolver=resolver)


def first_error(judge, case):
    error = next(judge.iter_errors(case), None)
    return error and f"{list(error.absolute_path)}: {error.message}"


class Schema(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        out = subprocess.run([PROGRAM, str(COUNT)], stdout=subprocess.PIPE, check=True).stdout
        cls.cases = [json.loads(line) for line in out.decode("utf-8").splitlines()]
        cls.open, cls.closed = validator(lambda schema: schema), validator(closed)

    def damaged(self, good, change):
        case = copy.deepcopy(good)
        change(case)
        return first_error(self.open, case)

    def test_the_schema_is_one(self):
        Draft202012Validator.check_schema(loaded(SCHEMA))

    def test_random_cases(self):
        self.assertEqual(len(self.cases), COUNT)
        for judge, cases in ((self.open, self.cases), (self.closed, self.cases[::5])):
            for case in cases:
                self.assertIsNone(first_error(judge, case), case)

    def test_examples(self):
        examples = sorted((SCHEMA.parent.parent / "examples/cases").glob("*.json"))
        self.assertGreater(len(examples), 0)
        for example in examples:
            self.assertIsNone(first_error(self.closed, loaded(example)), example.name)

    def test_every_member_occurs(self):
        self.assertEqual(named(loaded(SCHEMA)) - met(self.cases), set())

    def test_the_page_tells_of_every_member_and_word(self):
        """Of those that a record does not have."""
        schema, record = loaded(SCHEMA), loaded(RECORD)
        del schema["$defs"]["rule_name"]  # docs/rules.md tells of them
        own = (named(schema) | words(schema)) - named(record) - words(record) - {""}
        page = SCHEMA.with_name("cases.md").read_text(encoding="utf-8")
        code = re.findall(r"`[^`]*`|^    .*", page, re.MULTILINE)
        told = set(re.findall(r"\w+", " ".join(code)))
        self.assertEqual({word for word in own if not word.endswith("_bytes")} - told, set())

    def test_every_rule_occurs(self):
        told = set()
        for case in self.cases:
            told |= set(case.get("expect", {}).get("rules", {}))
        self.assertEqual(told, set(loaded(SCHEMA)["$defs"]["rule_name"]["enum"]))

    def test_by_hand(self):
        least = {"schema": "quillfence.case/1", "transaction": {}}
        self.assertIsNone(first_error(self.closed, least))
        case = {**least, "config": {"user_dir": "c:/x"},
                "zonedata": {"a.example": "TIMEOUT", "b.example": ["TIMEOUT"], "c.example": [],
                             "d.example": [{"A": "192.0.2.1"}, "SERVFAIL"],
                             "e.example": [{"MX": [0, ""]}, {"SPF": ["a", "b"]}]},
                "expect": {"rule": ["valid_ptr", "from_blacklist"], "notice_bytes": "ff"}}
        self.assertIsNone(first_error(self.closed, case))
        for change in (
                lambda c: c["zonedata"].update({"a.example": "LATE"}),
                lambda c: c["zonedata"].update({"a.example": {"A": "192.0.2.1"}}),
                lambda c: c["zonedata"]["d.example"].append({"SRV": "x"}),
                lambda c: c["zonedata"]["d.example"].append({"A": "192.0.2.1", "NS": "x"}),
                lambda c: c["zonedata"]["d.example"].append({}),
                lambda c: c["zonedata"]["d.example"].append({"MX": [65536, "x"]}),
                lambda c: c["zonedata"]["d.example"].append({"A": ["192.0.2.1"]}),
                lambda c: c.update(dns=[]),
                lambda c: c.update(expect={}),
                lambda c: c["expect"].update(verdikt="reject"),
                lambda c: c["expect"].update(verdict="refuse"),
                lambda c: c["expect"].update(rule="valid_prt"),
                lambda c: c["expect"].update(rules={"valid_prt": "hit"}),
                lambda c: c["expect"].update(rules={"valid_ptr": "hits"}),
                lambda c: c["expect"].update(entry=[]),
                lambda c: c["expect"].update(maps="bots.bms")):
            self.assertIsNotNone(self.damaged(case, change))

    def test_what_is_wrong(self):
        good = next(c for c in self.cases if "decision" in c and c["dns"])
        value = {"key": "x", "value": "x", "type": "REG_SZ", "data": "x"}
        self.assertIsNone(self.damaged(good, lambda c: c.update(later=1, registry=[value])))
        for change in (
                lambda c: c.update(schema="quillfence.case/2"),
                lambda c: c.pop("transaction"),
                lambda c: c.pop("rules"),
                lambda c: c.pop("dns"),
                lambda c: c["config"].pop("base"),
                lambda c: c["transaction"].pop("stage"),
                lambda c: c.update(zonedata={}),
                lambda c: c["dns"][0].pop("records"),
                lambda c: c.update(registry=[{"value": "x"}]),
                lambda c: c.update(registry=[{"key": "x", "data": "x"}]),
                lambda c: c.update(registry=[{"key": "x", "value": "x", "type": "REG_SZ"}]),
                lambda c: c.update(registry=[{"key": "x", "type": "REG_SZ", "data": "x"}]),
                lambda c: c.update(registry=[{**value, "type": "TEXT"}]),
                lambda c: c.update(registry=[{**value, "type": "REG_DWORD"}]),
                lambda c: c.update(registry=[{**value, "missing": True}]),
                lambda c: c.update(address_map=[{"address": "x"}]),
                lambda c: c.update(
                    address_map=[{"address": "x", "destination": "x", "missing": True}]),
                lambda c: c.update(folders=[{"folder": "x"}]),
                lambda c: c.update(folders=[{"folder": "x", "names": "x"}])):
            self.assertIsNotNone(self.damaged(good, change))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
