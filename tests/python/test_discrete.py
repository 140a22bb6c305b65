"""Discrete banks through the emulated Travin: output bank k line n is wired to input bank k line n."""

import time

import pytest

import hdwlib
from conftest import DEADLINE_S, OPEN_TIMEOUT_MS, managed_unit


@pytest.fixture
def travin():
    yield from managed_unit("travin", 5)


def open_bank(manager, k, din_params=None, dout_params=None):
    """Output bank k and input bank k, opened with their parameters: (output service, input service)."""
    dout, din = manager.port(f"dout:{k}"), manager.port(f"din:{k}")
    out, inp = dout.enable_discrete_out(), din.enable_discrete_in()
    dout.open(timeout=OPEN_TIMEOUT_MS, **(dout_params or {}))
    din.open(timeout=OPEN_TIMEOUT_MS, **(din_params or {}))
    return out, inp


def changes(inp, count):
    got, end = [], time.monotonic() + DEADLINE_S
    while len(got) < count and time.monotonic() < end:
        got.extend(inp.read())
        time.sleep(0.002)
    return got


def until(what):
    """Waits until what() is true (refreshing nothing), up to the deadline; its last value."""
    end = time.monotonic() + DEADLINE_S
    while True:
        try:
            value = what()
        except hdwlib.HdwError as e:
            if e.code != 4:  # no report yet
                raise
            value = False
        if value or time.monotonic() >= end:
            return value
        time.sleep(0.002)


def test_writes_reach_the_wired_inputs_as_time_stamped_changes_in_order(travin):
    out, inp = open_bank(travin, 0, din_params={"debounce_us": 0})
    dout, din = travin.port("dout:0"), travin.port("din:0")
    assert (dout.line_count, din.line_count) == (8, 8)
    assert until(lambda: inp.state == 0)
    before = time.time()
    steps = [(out.set, 0x05, 0x05, 0x05), (out.toggle, 0x0F, 0x0A, 0x0F), (out.clear, 0x02, 0x08, 0x02),
             (out.write, 0xF0, 0xF0, 0xF8)]
    got = []
    for op, arg, _, _ in steps:
        op(arg)
        got += changes(inp, 1)
    out.set(0)  # an empty mask sends nothing
    after = time.time()
    assert [(c.state, c.changed, c.lost) for c in got] == [(s, c, 0) for _, _, s, c in steps]
    assert all(b.unit_time > a.unit_time for a, b in zip(got, got[1:]))
    assert all(b.time >= a.time for a, b in zip(got, got[1:]))
    assert before - 1.0 <= got[0].time and got[-1].time <= after + 1.0
    assert until(lambda: out.driven == 0xF0) and out.commanded == 0xF0 and out.lost == 0
    assert inp.state == 0xF0 and inp.get_state()[0] == 0xF0
    assert [inp.input(n) for n in range(8)] == [False] * 4 + [True] * 4
    assert inp.pending == 0 and inp.lost == 0 and inp.read() == []


def test_debounce_filters_a_short_pulse_and_a_long_one_shows_twice_with_signals(travin):
    dout, din = travin.port("dout:1"), travin.port("din:1")
    out, inp = dout.enable_discrete_out(), din.enable_discrete_in()
    signals = din.enable_signals([hdwlib.SIGNAL_DISCRETE_INPUT])
    dout.open(timeout=OPEN_TIMEOUT_MS)
    din.open(debounce_us=5000, timeout=OPEN_TIMEOUT_MS)
    assert until(lambda: inp.state == 0)
    out.pulse(0x01, 4990)  # shorter than the debounce: never seen
    out.set(0x02)  # a marker behind it: changes of a bank never overtake each other
    first = changes(inp, 1)
    assert [(c.state, c.changed) for c in first] == [(0x02, 0x02)]
    out.pulse(0x01, 20000)
    pulse = changes(inp, 2)
    assert [(c.state, c.changed) for c in pulse] == [(0x03, 0x01), (0x02, 0x01)]
    assert abs((pulse[1].unit_time - pulse[0].unit_time) - 20000) <= 1000
    # The signal service saw the same three changes: value the state, aux the lines.
    seen, end = [], time.monotonic() + DEADLINE_S
    while len(seen) < 3 and time.monotonic() < end:
        s = signals.wait(0.2)
        if s is not None:
            seen.append((s.kind, s.value, s.aux))
    assert seen == [(hdwlib.SIGNAL_DISCRETE_INPUT, 0x02, 0x02), (hdwlib.SIGNAL_DISCRETE_INPUT, 0x03, 0x01),
                    (hdwlib.SIGNAL_DISCRETE_INPUT, 0x02, 0x01)]
    assert until(lambda: out.driven == 0x02)


def test_polarity_initial_state_and_change_mask(travin):
    # Output line 0 inverted and line 7 set at open: the wire carries 0x81, read as is.
    out3, inp3 = open_bank(travin, 3, dout_params={"initial_state": 0x80, "invert_mask": 0x01})
    assert until(lambda: inp3.state == 0x81)
    assert out3.driven == 0x80 and out3.commanded == 0x80
    # Inputs 0-3 inverted, only lines 4-7 report changes.
    out2, inp2 = open_bank(travin, 2, din_params={"invert_mask": 0x0F, "change_mask": 0xF0, "debounce_us": 0})
    assert until(lambda: inp2.state == 0x0F)
    out2.set(0x03)  # lines outside the change mask: read, not reported
    assert until(lambda: (inp2.refresh(), inp2.state)[1] == 0x0C)
    out2.set(0x11)  # line 0 is already set: only line 4 changes
    got = changes(inp2, 1)
    assert [(c.state, c.changed) for c in got] == [(0x1C, 0x10)]
    assert inp2.read() == [] and inp2.pending == 0


def test_bad_arguments_raise_the_library_results_and_change_nothing(travin):
    dout, din = travin.port("dout:1"), travin.port("din:1")
    out, inp = dout.enable_discrete_out(), din.enable_discrete_in()
    with pytest.raises(hdwlib.HdwError) as info:
        din.enable_discrete_out()
    assert info.value.code == 10
    with pytest.raises(TypeError):
        din.open(initial_mask=1)
    for bad in ({"debounce_us": 15}, {"debounce_us": 100010}, {"invert_mask": 0x100}):
        with pytest.raises(hdwlib.HdwError) as info:
            din.open(timeout=OPEN_TIMEOUT_MS, **bad)
        assert info.value.code == 2 and not din.is_open
    with pytest.raises(hdwlib.HdwError) as info:
        out.set(0x01)  # not open: the service is stopped
    assert info.value.code == 29
    dout.open(timeout=OPEN_TIMEOUT_MS)
    din.open(timeout=OPEN_TIMEOUT_MS)
    for call in (lambda: out.set(0x100), lambda: out.write(0x1FF), lambda: out.pulse(0x01, 5),
                 lambda: out.pulse(0x01, 10000001), lambda: inp.input(8)):
        with pytest.raises(hdwlib.HdwError) as info:
            call()
        assert info.value.code == 2
    assert until(lambda: out.driven == 0) and out.commanded == 0
    out.set(0x04)
    assert [(c.state, c.changed) for c in changes(inp, 1)] == [(0x04, 0x04)]
