"""The reads and writes of property_list_bench, done by Python's plistlib."""
import datetime
import plistlib
import time
import timeit


def preferences():
    members = {}
    for i in range(40):
        members[f"text{i}"] = f"a setting of ordinary length, number {i}"
        members[f"flag{i}"] = i % 2 == 0
        members[f"count{i}"] = i * 1000
        members[f"when{i}"] = datetime.datetime(2001, 1, 1) + datetime.timedelta(days=i)
        members[f"list{i}"] = ["one", "two", i]
    return members


def measure(name, work, rounds=200):
    best = min(timeit.repeat(work, timer=time.process_time, number=rounds, repeat=5)) / rounds
    print(f"plistlib {name:<11}{best * 1e6:10.1f} us of CPU")


value = preferences()
xml = plistlib.dumps(value)
binary = plistlib.dumps(value, fmt=plistlib.FMT_BINARY)
assert plistlib.loads(xml) == plistlib.loads(binary) == value
measure("readXml", lambda: plistlib.loads(xml))
measure("readBinary", lambda: plistlib.loads(binary))
measure("writeXml", lambda: plistlib.dumps(value))
