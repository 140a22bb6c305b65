"""I2C and SPI masters of the emulated Wendal: behind each I2C master an EEPROM at 0x50 (and at 0x250,
10-bit), a device at 0x20 that acknowledges only its address, no one elsewhere; behind each SPI master a
loopback on chip select 0 and a memory on chip select 1 (0x02 write, 0x03 read, 16-bit address)."""

import time

import pytest

import hdwlib
from conftest import DEADLINE_S, OPEN_TIMEOUT_MS, managed_unit

NO_ACK = hdwlib.ERR_NO_ACK


@pytest.fixture
def wendal():
    yield from managed_unit("wendal", 7)


def open_i2c(manager, n, **params):
    port = manager.port(f"i2c:{n}")
    master = port.enable_i2c()
    port.open(timeout=OPEN_TIMEOUT_MS, **params)
    return master


def test_i2c_eeprom_write_then_random_read_both_address_modes(wendal):
    i2c = open_i2c(wendal, 0, bus_speed=400000)
    wrote = i2c.transfer(0x50, bytes([0x10]) + b"python!")
    assert (wrote.result, wrote.acked, wrote.data, wrote.address) == (0, 8, b"", 0x50)
    back = i2c.transfer(0x50, b"\x10", read=7)
    assert (back.result, back.data, back.read_length) == (0, b"python!", 7)
    assert back.time >= wrote.time > 0
    # The same EEPROM at a 10-bit address; the page (16 bytes) wraps within itself.
    i2c.transfer(0x250, bytes([0x1E, 1, 2, 3, 4]), ten_bit=True)
    assert i2c.transfer(0x250, b"\x10", read=4, ten_bit=True).data == bytes([3, 4]) + b"th"
    assert i2c.transfer(0x50, b"\x1E", read=2).data == bytes([1, 2])


def test_i2c_missing_acknowledges_raise_with_the_transfer_and_are_returned_when_submitted(wendal):
    assert (hdwlib.ERR_NO_ACK, hdwlib.ERR_BUS_FAULT) == (33, 34)
    i2c = open_i2c(wendal, 1)
    with pytest.raises(hdwlib.HdwError) as info:
        i2c.transfer(0x33, read=1)  # no one at this address
    e = info.value
    assert e.code == NO_ACK and e.transfer.nack_on_address and e.transfer.acked == 0 and e.transfer.data == b""
    with pytest.raises(hdwlib.HdwError) as info:
        i2c.transfer(0x20, b"\x01\x02")  # the address is acknowledged, its data is not
    assert info.value.code == NO_ACK and not info.value.transfer.nack_on_address and info.value.transfer.acked == 0
    # Submitted transfers come back in order, each with its result.
    for tag, address in enumerate([0x50, 0x33, 0x20, 0x50]):
        i2c.submit(address, b"\x00", read=1 if address == 0x50 else 0, tag=tag)
    results, end = [], time.monotonic() + DEADLINE_S
    while len(results) < 4 and time.monotonic() < end:
        results += i2c.read_results()
        time.sleep(0.005)
    assert [(r.tag, r.address, r.result) for r in results] == [(0, 0x50, 0), (1, 0x33, NO_ACK), (2, 0x20, NO_ACK),
                                                               (3, 0x50, 0)]
    assert [r.nack_on_address for r in results] == [False, True, False, False]
    assert i2c.pending == 0 and i2c.results_waiting == 0


def test_i2c_and_spi_refusals(wendal):
    port = wendal.port("i2c:0")
    i2c = port.enable_i2c()
    with pytest.raises(hdwlib.HdwError) as info:
        port.open(bus_speed=200000, timeout=OPEN_TIMEOUT_MS)
    assert info.value.code == 2 and not port.is_open
    port.open(timeout=OPEN_TIMEOUT_MS)
    with pytest.raises(ValueError):
        i2c.transfer(0x80)
    with pytest.raises(hdwlib.HdwError) as info:
        i2c.transfer(0x50, read=241)  # more than the unit carries in one transfer
    assert info.value.code == 2
    spi_port = wendal.port("spi:0")
    spi = spi_port.enable_spi()
    with pytest.raises(hdwlib.HdwError) as info:
        spi_port.open(mode=4, timeout=OPEN_TIMEOUT_MS)
    assert info.value.code == 2
    spi_port.open(word_bits=16, timeout=OPEN_TIMEOUT_MS)
    with pytest.raises(hdwlib.HdwError) as info:
        spi.transfer(b"\x01\x02\x03")  # 16-bit words: an even number of bytes
    assert info.value.code == 2


def test_spi_loopback_and_memory(wendal):
    port = wendal.port("spi:1")
    spi = port.enable_spi()
    port.open(mode=3, clock_hz=2000000, timeout=OPEN_TIMEOUT_MS)
    out = bytes(range(200))
    loop = spi.transfer(out)
    assert (loop.result, loop.data, loop.out, loop.chip_select) == (0, out, out, None)
    assert spi.transfer(b"\x02\x01\x00" + b"wendal", chip_select=1).chip_select == 1
    read = spi.transfer(b"\x03\x01\x00" + bytes(6), chip_select=1)
    assert read.data[3:] == b"wendal" and read.time >= loop.time > 0
    assert spi.transfer(b"\xAA\x55", chip_select=2).data == b"\xFF\xFF"
