"""The python-can interface "hdwlib" against the emulated unit, whose CAN
channels 0 and 1 share one bus."""

import os
import subprocess
import sys
import time

import can
import pytest

import hdwlib
from hdwlib import _shared
from conftest import DEADLINE_S, ECHO_TIMEOUT_MS, OPEN_TIMEOUT_MS, Sim


def open_bus(sim, channel, **kwargs):
    return can.Bus(interface="hdwlib", channel=channel, link=sim.link, bitrate=500000,
                   open_timeout_ms=OPEN_TIMEOUT_MS, echo_timeout_ms=ECHO_TIMEOUT_MS, **kwargs)


@pytest.fixture
def pair(sim):
    tx = open_bus(sim, "can:0")
    rx = open_bus(sim, "can:1")
    yield tx, rx
    rx.shutdown()
    tx.shutdown()


def recv_all(bus, count):
    got = []
    end = time.monotonic() + DEADLINE_S
    while len(got) < count and time.monotonic() < end:
        msg = bus.recv(timeout=0.5)
        if msg is not None:
            got.append(msg)
    return got


def test_the_entry_point_finds_the_interface():
    from can.interfaces import BACKENDS

    assert BACKENDS["hdwlib"] == ("hdwlib.can_interface", "HdwlibBus")


def test_send_on_one_channel_receive_on_the_other(pair):
    tx, rx = pair
    sent = [
        can.Message(arbitration_id=0x123, data=b"\xde\xad\xbe\xef", is_extended_id=False),
        can.Message(arbitration_id=0x1F334455, data=b"", is_extended_id=True, is_remote_frame=True, dlc=2),
        can.Message(arbitration_id=0x7FF, data=bytes(range(8)), is_extended_id=False),
    ]
    before = time.time()
    for m in sent:
        tx.send(m)
    got = recv_all(rx, 3)
    after = time.time()
    assert len(got) == 3
    for s, g in zip(sent, got):
        assert (g.arbitration_id, g.is_extended_id, g.is_remote_frame, g.dlc) == (
            s.arbitration_id, s.is_extended_id, s.is_remote_frame, s.dlc)
        assert g.is_remote_frame or g.data == s.data
        assert g.channel == "can:1" and g.is_rx
    assert before - 1.0 <= got[0].timestamp <= got[-1].timestamp <= after + 1.0
    # Both directions: the other channel hears frames too.
    rx.send(can.Message(arbitration_id=0x42, data=b"\x01", is_extended_id=False))
    back = recv_all(tx, 1)
    assert [m.arbitration_id for m in back] == [0x42]


def test_many_frames_arrive_in_order(pair):
    tx, rx = pair
    for i in range(300):
        tx.send(can.Message(arbitration_id=0x100 + (i % 16), data=i.to_bytes(2, "big"), is_extended_id=False))
    got = recv_all(rx, 300)
    assert [int.from_bytes(m.data, "big") for m in got] == list(range(300))


def test_filters_pass_only_matching_identifiers(sim):
    tx = open_bus(sim, "can:0")
    rx = open_bus(sim, "can:1", can_filters=[{"can_id": 0x100, "can_mask": 0x7F0, "extended": False}])
    try:
        for ident in [0x100, 0x200, 0x10F, 0x110, 0x105]:
            tx.send(can.Message(arbitration_id=ident, data=b"\x00", is_extended_id=False))
        got = recv_all(rx, 3)
        assert [m.arbitration_id for m in got] == [0x100, 0x10F, 0x105]
        assert rx.recv(timeout=0.1) is None
    finally:
        rx.shutdown()
        tx.shutdown()


def test_recv_times_out_with_none(pair):
    tx, rx = pair
    start = time.monotonic()
    assert rx.recv(timeout=0.2) is None
    assert time.monotonic() - start >= 0.19
    assert rx.recv(timeout=0) is None


def test_buses_of_one_link_share_its_manager_until_the_last_shutdown(sim):
    a = open_bus(sim, "can:0")
    b = open_bus(sim, "can:1")
    assert _shared.users(sim.link) == 2
    # The driver's name is the same link as its code.
    code, _, where = sim.link.partition(":")
    name = {c: n for n, c in hdwlib.drivers()}[int(code)]
    assert _shared.users(f"{name.upper()}:{where}") == 2
    a.shutdown()
    assert _shared.users(sim.link) == 1
    # The unit still works for the other bus: it hears a third bus's frame.
    c = open_bus(sim, "can:0")
    c.send(can.Message(arbitration_id=0x55, data=b"\x05", is_extended_id=False))
    assert [m.arbitration_id for m in recv_all(b, 1)] == [0x55]
    c.shutdown()
    b.shutdown()
    assert _shared.users(sim.link) == 0
    with pytest.raises(can.CanOperationError):
        b.recv(timeout=0)
    with pytest.raises(can.CanOperationError):
        b.send(can.Message(arbitration_id=1, is_extended_id=False))
    # A new bus enumerates the unit again.
    d = open_bus(sim, "can:1")
    assert _shared.users(sim.link) == 1
    d.shutdown()


def test_a_channel_opened_twice_or_missing_is_an_initialization_error(pair, sim):
    with pytest.raises(can.CanInitializationError):
        open_bus(sim, "can:0")
    with pytest.raises(can.CanInitializationError):
        open_bus(sim, "can:7")
    with pytest.raises(can.CanInitializationError):
        open_bus(sim, "a429rx:0")
    assert _shared.users(sim.link) == 2


def test_a_dead_link_is_an_initialization_error():
    with pytest.raises(can.CanInitializationError):
        can.Bus(interface="hdwlib", channel="can:0", link="3:/dev/hdwlib-no-such-tty")
    with pytest.raises(can.CanInitializationError):
        can.Bus(interface="hdwlib", channel="can:0")


def test_notifier_and_logger(pair, tmp_path):
    tx, rx = pair
    reader = can.BufferedReader()
    path = tmp_path / "trace.asc"
    logger = can.Logger(str(path))
    notifier = can.Notifier(rx, [reader, logger], timeout=0.1)
    try:
        for i in range(5):
            tx.send(can.Message(arbitration_id=0x300 + i, data=bytes([i]), is_extended_id=False))
        got = []
        end = time.monotonic() + DEADLINE_S
        while len(got) < 5 and time.monotonic() < end:
            m = reader.get_message(0.5)
            if m is not None:
                got.append(m)
    finally:
        notifier.stop()
        logger.stop()
    assert [m.arbitration_id for m in got] == [0x300 + i for i in range(5)]
    logged = [m for m in can.LogReader(str(path))]
    assert [m.arbitration_id for m in logged] == [0x300 + i for i in range(5)]


def test_asyncio_notifier_uses_the_descriptor(pair):
    import asyncio

    tx, rx = pair
    assert rx.fileno() >= 0

    async def main():
        reader = can.AsyncBufferedReader()
        notifier = can.Notifier(rx, [reader], loop=asyncio.get_running_loop())
        try:
            tx.send(can.Message(arbitration_id=0x77, data=b"\x07", is_extended_id=False))
            return await asyncio.wait_for(reader.get_message(), DEADLINE_S)
        finally:
            notifier.stop()

    assert asyncio.run(main()).arbitration_id == 0x77


def test_can_player_replays_a_log_in_another_process(tmp_path):
    path = tmp_path / "replay.asc"
    with can.Logger(str(path)) as log:
        for i in range(4):
            log(can.Message(timestamp=1.0 + i * 0.001, arbitration_id=0x500 + i, data=bytes([i]),
                            is_extended_id=False, channel=0))
    s = Sim(extra=["--counters"])
    try:
        result = subprocess.run(
            [sys.executable, "-m", "can.player", "-i", "hdwlib", "-c", "can:0", "-b", "500000",
             f"--link={s.link}", f"--open-timeout-ms={OPEN_TIMEOUT_MS}", f"--echo-timeout-ms={ECHO_TIMEOUT_MS}",
             str(path)],
            capture_output=True, text=True, timeout=120, env=dict(os.environ))
    finally:
        counters = s.stop()
    assert result.returncode == 0, result.stderr
    # No host opened can:1, so the frames count as transmitted on can:0.
    transmitted = next(line.split()[1:] for line in counters.splitlines() if line.startswith("can-transmitted"))
    assert transmitted[0] == "4", counters
