"""Python's plistlib at the work of preferences_bench: read one key of 200 from a file, write one and flush it."""

import os
import plistlib
import tempfile
import time

SETTINGS = {f"setting{key}": f"the value of setting {key}" for key in range(1000, 1200)}


def read_one_key(path):
    with open(path, "rb") as file:
        return plistlib.load(file)["setting1100"]


def write_one_key(path, value):
    with open(path, "rb") as file:
        settings = plistlib.load(file)
    settings["setting1100"] = value
    with open(path + ".new", "wb") as file:
        plistlib.dump(settings, file)
        file.flush()
        os.fsync(file.fileno())
    os.rename(path + ".new", path)
    folder = os.open(os.path.dirname(path), os.O_RDONLY)
    os.fsync(folder)
    os.close(folder)


def measure(title, work, seconds=1.0):
    count = 0
    start, cpu_start = time.perf_counter(), time.process_time()
    while time.perf_counter() - start < seconds:
        work()
        count += 1
    spent, cpu_spent = time.perf_counter() - start, time.process_time() - cpu_start
    print(f"{title:36} {spent / count * 1e9:9.0f} ns {cpu_spent / count * 1e9:12.0f} ns {count:12}")


with tempfile.TemporaryDirectory() as folder:
    path = os.path.join(folder, "settings.plist")
    for form in (plistlib.FMT_BINARY, plistlib.FMT_XML):
        with open(path, "wb") as file:
            plistlib.dump(SETTINGS, file, fmt=form)
        measure(f"plistlib: one key of 200, {form.name[4:]}", lambda: read_one_key(path))
    measure("plistlib: one of 200 written, flushed", lambda: write_one_key(path, 1))
