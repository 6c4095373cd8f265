#!/usr/bin/env python3
"""Reads keyed archives with Python's own plistlib, as a second, independent reader.

For every NAME.archive in the directory given, walks "$objects" the way the platform's
unarchiver does and compares the result with NAME.json (the same JSON form our tools print:
{"$data": base64} for data, {"$date": seconds} for dates). Exits 1 on the first mismatch.
"""
import base64
import json
import math
import plistlib
import sys
from pathlib import Path

CONTAINERS = {"NSDictionary", "NSMutableDictionary", "NSArray", "NSMutableArray", "NSDate"}


def unarchive(path):
    archive = plistlib.loads(path.read_bytes())
    assert archive["$archiver"] == "NSKeyedArchiver", "wrong $archiver"
    assert archive["$version"] == 100000, "wrong $version"
    objects = archive["$objects"]
    assert objects[0] == "$null", "$objects must start with $null"

    def decode(uid):
        assert isinstance(uid, plistlib.UID), f"expected a UID, got {uid!r}"
        if uid.data == 0:
            return None
        obj = objects[uid.data]
        if isinstance(obj, dict):
            descriptor = objects[obj["$class"].data]
            name = descriptor["$classname"]
            assert name in CONTAINERS, f"unexpected class {name}"
            assert descriptor["$classes"][0] == name and descriptor["$classes"][-1] == "NSObject"
            if name.endswith("Dictionary"):
                keys = [decode(k) for k in obj["NS.keys"]]
                return dict(zip(keys, (decode(v) for v in obj["NS.objects"])))
            if name.endswith("Array"):
                return [decode(v) for v in obj["NS.objects"]]
            return {"$date": obj["NS.time"]}
        if isinstance(obj, bytes):
            return {"$data": base64.b64encode(obj).decode()}
        return obj

    return decode(archive["$top"]["root"])


def same(a, b):
    if isinstance(a, bool) or isinstance(b, bool):
        return a is b
    if isinstance(a, (int, float)) and isinstance(b, (int, float)):
        return a == b or (isinstance(a, float) and math.isclose(a, b, rel_tol=1e-15))
    if isinstance(a, dict) and isinstance(b, dict):
        return a.keys() == b.keys() and all(same(a[k], b[k]) for k in a)
    if isinstance(a, list) and isinstance(b, list):
        return len(a) == len(b) and all(same(x, y) for x, y in zip(a, b))
    return a == b


def main():
    directory = Path(sys.argv[1])
    archives = sorted(directory.glob("*.archive"))
    if not archives:
        print(f"no archives in {directory}")
        return 1
    for path in archives:
        decoded = unarchive(path)
        expected = json.loads(path.with_suffix(".json").read_text())
        if not same(decoded, expected):
            print(f"{path.name}: python read {decoded!r:.300}, expected {expected!r:.300}")
            return 1
    print(f"{len(archives)} archives read back by plistlib")
    return 0


if __name__ == "__main__":
    sys.exit(main())
