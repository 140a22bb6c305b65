"""The unit emulator (hdwsim, named by HDWSIM) on a pseudo-terminal or loopback UDP, and a running manager on it."""

import os
import select
import signal
import subprocess

import pytest

import hdwlib

# Generous limits for a loaded machine (see tests/units/posix/UnitRig.h).
DEADLINE_S = 20.0
ECHO_TIMEOUT_MS = 5000
OPEN_TIMEOUT_MS = 10000


class Sim:
    """One hdwsim process; `link` is "CODE:LINKTEXT" for the manager."""

    def __init__(self, unit="halden", code=3, udp=False, extra=()):
        program = os.environ.get("HDWSIM")
        if not program:
            pytest.skip("HDWSIM is not set (run through ctest)")
        args = [program, "--unit", unit] + (["--udp", "0"] if udp else ["--pty"]) + list(extra)
        self.proc = subprocess.Popen(args, stdout=subprocess.PIPE, text=True)
        ready, _, _ = select.select([self.proc.stdout], [], [], DEADLINE_S)
        line = self.proc.stdout.readline().strip() if ready else ""
        kind, _, where = line.partition(" ")
        if kind not in ("pty", "udp"):
            self.stop()
            raise RuntimeError(f"hdwsim said {line!r}")
        self.link = f"{code}:{where}" if kind == "pty" else f"{code}:udp:{where}"

    def stop(self):
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
        self.proc.communicate(timeout=DEADLINE_S)


@pytest.fixture
def sim():
    s = Sim()
    yield s
    s.stop()


def start_manager(link):
    """A running manager with the unit on `link` (a few tries: a loaded machine can miss the probe's wait)."""
    code = link.partition(":")[0]
    manager = hdwlib.Manager([int(code)])
    manager.set_echo_timeout(ECHO_TIMEOUT_MS)
    for attempt in range(5):
        try:
            manager.enumerate([link])
            break
        except hdwlib.HdwError:
            if attempt == 4:
                raise
    manager.run()
    return manager


@pytest.fixture
def manager(sim):
    m = start_manager(sim.link)
    yield m
    m.stop()


def managed_unit(unit, code, udp=False):
    """For a fixture: a running manager with an emulated `unit` of its own, stopped with the emulator after."""
    s = Sim(unit=unit, code=code, udp=udp)
    m = start_manager(s.link)
    yield m
    m.stop()
    s.stop()
