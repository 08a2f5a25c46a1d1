"""Validates JSON documents against a JSON Schema with Draft202012Validator.

usage: validate_documents.py SCHEMA DOCUMENT...

Checks the schema itself first, then prints one line per document, "valid" or "invalid",
in the order given. Any failure (a missing package included) ends with a non-zero status.
"""
import json
import sys

from jsonschema import Draft202012Validator


def main(arguments):
    with open(arguments[0], encoding="utf-8") as schema_file:
        schema = json.load(schema_file)
    Draft202012Validator.check_schema(schema)
    validator = Draft202012Validator(schema)
    for path in arguments[1:]:
        with open(path, encoding="utf-8") as document_file:
            document = json.load(document_file)
        print("valid" if validator.is_valid(document) else "invalid")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
