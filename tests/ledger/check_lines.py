#!/usr/bin/env python3
"""check_lines.py SCHEMA FILE: says which lines of a file are none by a JSON Schema, and ends with 1 when there are some."""
import json
import sys

from jsonschema import Draft202012Validator

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
Draft202012Validator.check_schema(schema)
validator = Draft202012Validator(schema)
good = True
with open(sys.argv[2], encoding="utf-8") as file:
    for line in file:
        for error in validator.iter_errors(json.loads(line)):
            good = False
            print(f"{error.message} in {line}", end="")
sys.exit(0 if good else 1)
