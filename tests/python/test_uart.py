"""UART byte streams through the emulated units: the Halden's UARTs 0 and 1 (cross-wired) on a
pseudo-terminal, the Sorrel's UARTs 2 and 3 (wired to each other, paced at their rate) on loopback UDP."""

import random
import time

import pytest

import hdwlib
from conftest import DEADLINE_S, OPEN_TIMEOUT_MS, managed_unit


@pytest.fixture
def sorrel():
    yield from managed_unit("sorrel", 9, udp=True)


def open_pair(manager, a, b, both_ways=False, **line):
    """UART a's transmit buffer, UART b's receive buffer and b's signals, both ports open with `line`
    (services are enabled before a port opens: with `both_ways`, b's transmit and a's receive buffer too)."""
    tx, rx = manager.port(f"uart:{a}"), manager.port(f"uart:{b}")
    out, inp = tx.enable_uart_out(), rx.enable_uart_in()
    if both_ways:
        rx.enable_uart_out(), tx.enable_uart_in()
    signals = rx.enable_signals([hdwlib.SIGNAL_UART_RECEIVED])
    rx.open(timeout=OPEN_TIMEOUT_MS, **line)
    tx.open(timeout=OPEN_TIMEOUT_MS, **line)
    return out, inp, signals


def receive(buffer, count, signals=None):
    """Bytes from `buffer` until `count` came (or the deadline); with `signals`, waits on them between reads
    and returns the byte counts they reported too."""
    got, reported, end = b"", 0, time.monotonic() + DEADLINE_S
    while len(got) < count and time.monotonic() < end:
        chunk = buffer.read()
        got += chunk
        if signals is None:
            time.sleep(0.005)
        else:
            waited = [] if chunk else [signals.wait(0.2)]
            reported += sum(s.value for s in waited + signals.read() if s is not None)
    return got, reported


def wait_sent(out):
    end = time.monotonic() + DEADLINE_S
    while out.pending and time.monotonic() < end:
        time.sleep(0.005)
    return out.pending


def test_halden_bytes_cross_the_wiring_complete_and_in_order_both_ways(manager):
    data = random.Random(429).randbytes(6000)
    out0, in1, signals1 = open_pair(manager, 0, 1, both_ways=True, rate=115200)
    # Enabling again gives the services already there.
    out1, in0 = manager.port("uart:1").enable_uart_out(), manager.port("uart:0").enable_uart_in()
    assert in1.read() == b"" and in1.waiting == 0
    # Written in pieces of every kind a bytes-like object comes in.
    out0.write(data[:1000])
    out0.write(bytearray(data[1000:3000]))
    out0.write(memoryview(data)[3000:5999])
    out0.write([data[5999]])
    got, reported = receive(in1, len(data), signals1)
    assert got == data
    # Signals may trail the bytes they announce: collect the last ones.
    end = time.monotonic() + DEADLINE_S
    while reported < len(data) and time.monotonic() < end:
        s = signals1.wait(0.2)
        reported += s.value if s is not None else 0
    assert reported == len(data)
    assert wait_sent(out0) == 0 and in1.dropped == 0 and out0.unplaced == 0
    # And back the other way: UART 1 to UART 0 (both ports are open).
    back = bytes(range(256)) * 4
    out1.write(back)
    assert receive(in0, len(back))[0] == back
    assert in1.read() == b""


def test_halden_buffer_bounds_reset_and_refusals(manager):
    tx, rx = manager.port("uart:0"), manager.port("uart:1")
    out, inp = tx.enable_uart_out(buffer_size=64), rx.enable_uart_in(buffer_size=100)
    # Enabling again gives the same service.
    assert rx.enable_uart_in() is inp
    with pytest.raises(TypeError):
        manager.port("can:0").enable_uart_in()
    with pytest.raises(ValueError):
        rx.open(parity="sometimes")
    with pytest.raises(ValueError):
        rx.open(stop_bits=3)
    # A setting the unit cannot run: no mark parity on this UART.
    with pytest.raises(hdwlib.HdwError) as info:
        rx.open(parity="mark", timeout=OPEN_TIMEOUT_MS)
    assert info.value.code == 2 and not rx.is_open
    rx.open(rate=57600, parity="even", stop_bits=2, timeout=OPEN_TIMEOUT_MS)
    tx.open(rate=57600, parity="even", stop_bits=2, timeout=OPEN_TIMEOUT_MS)
    with pytest.raises(TypeError):
        out.write("text")
    # More than the buffer takes: none of it is queued, and it is counted.
    with pytest.raises(hdwlib.HdwError) as info:
        out.write(bytes(65))
    assert info.value.code == 2 and out.unplaced == 65
    # The receive buffer keeps the newest 100 bytes and counts the others.
    sent = bytes(range(60))
    out.write(sent)
    assert wait_sent(out) == 0
    out.write(bytes(range(100, 160)))
    assert wait_sent(out) == 0
    end = time.monotonic() + DEADLINE_S
    while inp.waiting + inp.dropped < 120 and time.monotonic() < end:
        time.sleep(0.005)
    assert (inp.waiting, inp.dropped) == (100, 20)
    assert inp.read(10) == bytes(range(20, 30))
    inp.reset()
    assert inp.waiting == 0 and inp.read() == b""
    out.write(b"after reset")
    assert receive(inp, 11)[0] == b"after reset"


def test_sorrel_line_settings_and_a_stream_at_the_configured_rate(sorrel):
    data = random.Random(9).randbytes(20000)
    with pytest.raises(hdwlib.HdwError) as info:
        sorrel.port("uart:4").open(rate=921600, stop_bits=1.5, timeout=OPEN_TIMEOUT_MS)
    assert info.value.code == 2
    line = dict(rate=921600, data_bits=8, parity="odd", stop_bits=2, flow="rtscts")
    out, inp, signals = open_pair(sorrel, 2, 3, **line)
    start = time.monotonic()
    out.write(data)
    got, reported = receive(inp, len(data), signals)
    assert got == data
    # 20000 characters of 12 bits at 921600 bit/s take 0.26 s on the line.
    assert time.monotonic() - start >= 0.2
    assert inp.dropped == 0 and wait_sent(out) == 0
