#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
# check_json_schema.py SCHEMA DOCUMENT...: checks extprop-sim's --json
# documents against their JSON Schema with Debian's python3-jsonschema. Each
# document must also be strict UTF-8. Prints one line per fault; exit 1 on any.
import json
import sys

from jsonschema import exceptions, validators


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        schema = json.load(f)
    validator_class = validators.validator_for(schema)
    validator_class.check_schema(schema)
    validator = validator_class(schema)
    faults = 0
    for path in sys.argv[2:]:
        try:
            with open(path, encoding="utf-8", errors="strict") as f:
                document = json.load(f)
        except (UnicodeDecodeError, json.JSONDecodeError) as e:
            print(f"{path}: not a UTF-8 JSON document: {e}")
            faults += 1
            continue
        error = exceptions.best_match(validator.iter_errors(document))
        if error is not None:
            where = "/".join(str(part) for part in error.absolute_path)
            print(f"{path}: /{where}: {error.message}")
            faults += 1
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
