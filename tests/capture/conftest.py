"""Fixtures of the capture tests: hdwsim on a loopback UDP port and hdwtool
run against it (the programs named by HDWSIM and HDWTOOL)."""

import os
import subprocess
import time

import pytest


def _program(name):
    path = os.environ.get(name)
    if not path or not os.path.exists(path):
        pytest.fail(f"{name} must name the built program (run these tests through ctest)")
    return path


@pytest.fixture
def sim_link():
    """The --link value of a fresh emulated Halden unit on loopback UDP."""
    proc = subprocess.Popen([_program("HDWSIM"), "--unit", "halden", "--udp", "0"],
                            stdout=subprocess.PIPE, text=True)
    try:
        line = proc.stdout.readline().split()  # "udp 127.0.0.1:40811"
        assert len(line) == 2 and line[0] == "udp", line
        yield "3:udp:" + line[1]
    finally:
        proc.terminate()
        proc.wait(timeout=30)


@pytest.fixture
def hdwtool():
    """Runs hdwtool: (status, stdout, stderr, wall-clock seconds before and after the run)."""
    program = _program("HDWTOOL")

    def run(*args, timeout=120):
        before = time.time()
        done = subprocess.run([program, *args], capture_output=True, text=True, timeout=timeout)
        return done.returncode, done.stdout, done.stderr, before, time.time()

    return run
