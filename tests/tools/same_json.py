#!/usr/bin/env python3
"""same_json.py EXPECTED.json < ACTUAL: exits 0 when standard input holds the same JSON value
as the file, and otherwise prints the first place where they differ."""

import json
import sys


def first_difference(expected, actual, path="$"):
    if type(expected) is not type(actual):
        return "%s: expected %r, found %r" % (path, expected, actual)
    if isinstance(expected, dict):
        for key in sorted(set(expected) | set(actual)):
            if key not in actual or key not in expected:
                return "%s: key %r only on one side" % (path, key)
            found = first_difference(expected[key], actual[key], "%s.%s" % (path, key))
            if found:
                return found
        return None
    if isinstance(expected, list):
        for i, (e, a) in enumerate(zip(expected, actual)):
            found = first_difference(e, a, "%s[%d]" % (path, i))
            if found:
                return found
        if len(expected) != len(actual):
            return "%s: expected %d entries, found %d" % (path, len(expected), len(actual))
        return None
    return None if expected == actual else "%s: expected %r, found %r" % (path, expected, actual)


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        expected = json.load(f)
    actual = json.load(sys.stdin)
    difference = first_difference(expected, actual)
    if difference:
        print(difference)
        return 1
    print("same")
    return 0


if __name__ == "__main__":
    sys.exit(main())
