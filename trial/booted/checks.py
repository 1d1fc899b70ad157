"""Checks that run one after the other on a booted machine, each with a time limit, and a line about each."""

import os
import signal
import sys
import time

from booted.machine import NAMESPACES, Failure, what_is_missing

SIGNALS = (signal.SIGALRM, signal.SIGINT, signal.SIGTERM)
checks = []


def check(name, within):
    """Adds a check, which fails when it takes longer than that many seconds. They run in the order of their file."""

    def add(function):
        checks.append((name, within, function))

    return add


def expect(seen, wanted, what):
    if seen != wanted:
        raise Failure(f"{what}: {seen!r} instead of {wanted!r}")


def expect_within(seconds, action):
    """Does something and fails if that took longer."""
    start = time.monotonic()
    action()
    took = time.monotonic() - start
    expect(took < seconds, True, f"it took {took:.1f} s, less than {seconds} s")


def main(make_machine):
    """What the program does: runs all checks in namespaces of their own, on a machine that is made of the package."""
    match sys.argv[1:]:
        case ["--inside", package]:
            return 0 if run_checks(make_machine(package)) else 1
        case [argument]:
            if missing := what_is_missing():
                print(f"The system test can't run here. It needs {missing}")
                return 77
            if argument == "--probe":
                return 0
            os.execvp(NAMESPACES[0], [*NAMESPACES, sys.executable, sys.argv[0], "--inside", argument])
    print(f"{sys.argv[0]} PACKAGE.deb | --probe: status 77 where it can't run, which --probe only finds out")
    return 2


def run_checks(machine):
    """Runs all and closes the machine. Returns whether all were passed."""
    for number in SIGNALS:
        signal.signal(number, stop)
    try:
        results = []
        for number, one in enumerate(checks, 1):
            results.append(passes(machine, number, *one))
            if results == [False]:
                break  # the first makes the machine
    finally:
        for number in SIGNALS:
            signal.signal(number, signal.SIG_IGN)
        machine.close()
    print(f"{results.count(True)} checks passed, {results.count(False)} checks failed out of {len(results)}")
    return all(results)


def passes(machine, number, name, within, function):
    start = time.monotonic()
    failure = None
    signal.alarm(within)
    try:
        function(machine)
    except Exception as seen:
        failure = seen
    finally:
        signal.alarm(0)
    print(f"{'FAILED' if failure else 'ok'} {number} {time.monotonic() - start:.1f} s  {name}", flush=True)
    if failure:
        seen = f"{type(failure).__name__}: {str(failure)[:2000]}\n{journal(machine)}"
        print("    " + seen.replace("\n", "\n    "), flush=True)
    return failure is None


def stop(number, _):
    # No Failure, which a check may expect.
    raise TimeoutError("it takes too long") if number == signal.SIGALRM else SystemExit(1)


def journal(machine):
    try:
        return machine.run("journalctl", "-t", "systemd", "-t", "HavrelHelper", "-n", "12", "-o", "short-precise")
    except Exception as failure:  # there may be no machine that runs
        return f"no journal: {failure}"
