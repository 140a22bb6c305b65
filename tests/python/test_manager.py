"""Enumeration and ports against the emulated unit."""

import pytest

import hdwlib
from conftest import OPEN_TIMEOUT_MS, start_manager


def test_enumeration_lists_every_port_with_its_link_and_finds_each(manager, sim):
    ports = manager.ports()
    assert {"a429rx:0", "a429rx:3", "a429tx:0", "a429tx:3", "can:0", "can:1", "uart:1"} <= {p.name for p in ports}
    assert len(manager.ports("can")) == 2
    linktext = sim.link.partition(":")[2]
    for p in ports:
        assert (p.device_code, p.model, p.link) == (3, "Halden", linktext) and "@" in p.key
    assert len({p.key for p in ports}) == len(ports)
    # A port is found by name, type and number, and key.
    by_name = manager.port("can:1")
    assert by_name.type == hdwlib.PORT_CAN
    assert manager.port(hdwlib.PORT_CAN, 1) is by_name
    assert manager.port("can", 1) is by_name
    key = next(p.key for p in manager.ports("can") if p.abs_num == 1)
    assert manager.port(key) is by_name
    assert manager.port("can:0") is not by_name


def test_open_close_wrong_state_and_bad_argument_results(manager):
    port = manager.port("can:0")
    out = port.enable_can_out()
    with pytest.raises(hdwlib.HdwError) as info:
        out.write([hdwlib.CanFrame(0x10, b"\x01")])
    assert info.value.code != 0
    port.open(bitrate=250000, timeout=OPEN_TIMEOUT_MS)
    assert port.is_open
    with pytest.raises(hdwlib.HdwError) as info:
        port.open(bitrate=250000)
    assert info.value.code == 18  # already open
    port.close()
    assert not port.is_open
    # Enabling again gives the service already on the port.
    assert port.enable_can_out() is out
    # Bad arguments raise and open nothing.
    rx = manager.port("a429rx:0")
    for call, error in [(lambda: manager.port("can:9"), KeyError), (lambda: manager.port("bogus:0"), ValueError),
                        (lambda: manager.port("can"), ValueError), (lambda: rx.open(parity="bogus"), ValueError),
                        (lambda: port.open(baud=5), TypeError)]:
        with pytest.raises(error):
            call()
    with pytest.raises(hdwlib.HdwError) as info:
        port.open(bitrate=0, timeout=OPEN_TIMEOUT_MS)
    assert info.value.code == 2  # argument
    assert not rx.is_open and not port.is_open


def test_a_port_keeps_its_manager_alive(sim):
    port = start_manager(sim.link).port("a429rx:0")
    words = port.enable_arinc429_in()
    port.open(timeout=OPEN_TIMEOUT_MS)
    assert words.read() == []
    port.close()


def test_links_may_name_the_driver_or_be_pairs(sim):
    code, _, text = sim.link.partition(":")
    for link in [f"halden:{text}", (int(code), text), ("halden", text)]:
        m = hdwlib.Manager()
        assert any(m.enumerate([link], check=False) == [0] for _ in range(5))  # a few tries, as start_manager
        assert len(m.ports("a429tx")) == 4
        m.stop()
