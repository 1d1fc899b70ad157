"""Checks that run one after the other on a booted machine, each with a time limit, and a line about each."""

import signal
import time

from booted.machine import Failure

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


def run_checks(machine):
    """Runs all and closes the machine. Returns whether all were passed."""
    signal.signal(signal.SIGALRM, stop)
    signal.signal(signal.SIGTERM, stop)
    try:
        results = [passes(machine, number, *one) for number, one in enumerate(checks, 1)]
    finally:
        machine.close()
    print(f"{results.count(True)} checks passed, {results.count(False)} checks failed out of {len(results)}")
    return all(results)


def passes(machine, number, name, within, function):
    start = time.monotonic()
    failure = None
    signal.alarm(within)
    try:
        function(machine)
    except (Failure, OSError, LookupError, ValueError) as seen:
        failure = f"{seen}\n{journal(machine)}"
    signal.alarm(0)
    print(f"{'FAILED' if failure else 'ok'} {number} {time.monotonic() - start:.1f} s  {name}", flush=True)
    if failure:
        print("    " + failure.replace("\n", "\n    "), flush=True)
    return failure is None


def stop(number, _):
    raise Failure("it takes too long") if number == signal.SIGALRM else SystemExit(1)


def journal(machine):
    try:
        return machine.run("journalctl", "-t", "systemd", "-t", "HavrelHelper", "-n", "12", "-o", "short-precise")
    except Failure as failure:
        return f"no journal: {failure}"
