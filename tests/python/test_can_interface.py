"""The python-can interface "hdwlib" against the emulated unit, whose CAN channels 0 and 1 share one bus."""

import asyncio
import signal
import time

import can
import pytest

from hdwlib import _shared
from conftest import DEADLINE_S, ECHO_TIMEOUT_MS, OPEN_TIMEOUT_MS, Sim


def open_bus(sim, channel, **kwargs):
    return can.Bus(interface="hdwlib", channel=channel, link=sim.link, bitrate=500000,
                   open_timeout_ms=OPEN_TIMEOUT_MS, echo_timeout_ms=ECHO_TIMEOUT_MS, **kwargs)


def until(bus, done):
    """Receives until done(message) holds (None: nothing came in 0.1 s); the last message."""
    end = time.monotonic() + DEADLINE_S
    while time.monotonic() < end:
        msg = bus.recv(timeout=0.1)
        if done(msg):
            return msg
    return None


def recv_all(bus, count):
    got = []
    until(bus, lambda m: (m is not None and got.append(m)) or len(got) >= count)
    return got


def test_send_on_one_channel_receive_on_the_other(sim):
    tx, rx = open_bus(sim, "can:0"), open_bus(sim, "can:1")
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
    # Both directions, the other one through an asyncio notifier on the bus's descriptor.
    assert tx.fileno() >= 0

    async def main():
        reader = can.AsyncBufferedReader()
        notifier = can.Notifier(tx, [reader], loop=asyncio.get_running_loop())
        try:
            rx.send(can.Message(arbitration_id=0x42, data=b"\x01", is_extended_id=False))
            return await asyncio.wait_for(reader.get_message(), DEADLINE_S)
        finally:
            notifier.stop()

    assert asyncio.run(main()).arbitration_id == 0x42
    rx.shutdown()
    tx.shutdown()


def test_buses_of_one_link_share_its_manager_until_the_last_shutdown(sim):
    a = open_bus(sim, "can:0")
    b = open_bus(sim, "can:1")
    assert _shared.users(sim.link) == 2
    # A channel opened twice, missing or on a dead link is an initialization error, and no user more.
    for channel, link in [("can:0", sim.link), ("can:7", sim.link), ("a429rx:0", sim.link),
                          ("can:0", "3:/dev/hdwlib-no-such-tty"), ("can:0", None)]:
        with pytest.raises(can.CanInitializationError):
            can.Bus(interface="hdwlib", channel=channel, link=link, open_timeout_ms=OPEN_TIMEOUT_MS)
    assert _shared.users(sim.link) == 2
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


def test_fault_states_give_the_bus_state_and_error_frames():
    # The unit reports can:0 bus off and can:1 error passive (error register 5).
    s = Sim(extra=["--can-fault", "0:2", "--can-fault", "1:1:5"])
    tx, rx = open_bus(s, "can:0"), open_bus(s, "can:1")
    try:
        off, passive = [until(b, lambda m: m is not None and m.is_error_frame) for b in (tx, rx)]
        assert (off.arbitration_id, tx.state, tx.fault_state) == (0x040, can.BusState.ERROR, 2)
        assert (passive.arbitration_id, passive.data[1], passive.data[5]) == (0x004, 0x30, 5)
        assert (rx.state, rx.error_registers) == (can.BusState.PASSIVE, 5)
        tx.send(can.Message(arbitration_id=0x11, data=b"\x01", is_extended_id=False))  # frames still flow
        assert [m.arbitration_id for m in recv_all(rx, 1)] == [0x11]
    finally:
        rx.shutdown()
        tx.shutdown()
        s.stop()


def test_a_lost_unit_is_bus_state_error_until_it_is_back():
    s = Sim(udp=True)
    bus = open_bus(s, "can:1", reconnect=True)
    try:
        for unplug_or_plug, state in [(signal.SIGUSR1, can.BusState.ERROR), (signal.SIGUSR2, can.BusState.ACTIVE)]:
            s.proc.send_signal(unplug_or_plug)
            until(bus, lambda m: bus.state == state)
            assert bus.state == state
    finally:
        bus.shutdown()
        s.stop()


def test_detect_lists_the_can_ports_of_the_links_given(sim, monkeypatch):
    # Through the package's entry point, as python-can finds the interface.
    monkeypatch.setenv("HDWLIB_CAN_LINKS", f"{sim.link}, 3:/dev/hdwlib-no-such-tty")
    configs = can.detect_available_configs(["hdwlib"])
    assert configs == [{"interface": "hdwlib", "channel": f"can:{n}", "link": sim.link} for n in (0, 1)]
    assert _shared.users(sim.link) == 0  # the link is free again
    can.Bus(**configs[1], open_timeout_ms=OPEN_TIMEOUT_MS).shutdown()
    monkeypatch.setenv("HDWLIB_CAN_LINKS", "")
    assert can.detect_available_configs(["hdwlib"]) == []
