"""ARINC 429 words through the emulated unit (transmitter k feeds receiver k), signals' wait and select."""

import select
import threading
import time

import hdwlib
from conftest import DEADLINE_S, OPEN_TIMEOUT_MS


def open_pair(manager, n, signals_on_tx, kind):
    """Transmitter and receiver n at 100 kbit/s: their output and input buffers and signals of `kind`."""
    tx, rx = manager.port(f"a429tx:{n}"), manager.port(f"a429rx:{n}")
    out, words = tx.enable_arinc429_out(), rx.enable_arinc429_in()
    signals = (tx if signals_on_tx else rx).enable_signals([kind])
    rx.open(rate=100000, timeout=OPEN_TIMEOUT_MS)
    tx.open(rate=100000, timeout=OPEN_TIMEOUT_MS)
    return out, words, signals


def collect(buffer, count):
    got, end = [], time.monotonic() + DEADLINE_S
    while len(got) < count and time.monotonic() < end:
        got.extend(buffer.read())
        time.sleep(0.005)
    return got


def test_words_arrive_in_order_with_host_time_stamps_and_are_reported_sent(manager):
    out, words, sent_signals = open_pair(manager, 0, True, hdwlib.SIGNAL_ARINC429_SENT)
    sent = [hdwlib.Arinc429Word(0o203, i % 4, 0x1000 + i, 3) for i in range(50)]
    before = time.time()
    out.write(sent[:25])
    out.write(w.raw for w in sent[25:])  # raw values are words too
    got = collect(words, len(sent))
    after = time.time()
    assert got == sent
    assert all(w.parity_ok for w in got)
    stamps = [w.time for w in got]
    assert stamps == sorted(stamps)
    assert before - 1.0 <= stamps[0] and stamps[-1] <= after + 1.0
    assert words.dropped == 0
    s = sent_signals.wait(DEADLINE_S)
    assert s is not None and s.kind == hdwlib.SIGNAL_ARINC429_SENT and s.word == sent[0]


def test_signal_wait_releases_the_interpreter_times_out_then_reports_words_also_through_select(manager):
    out, words, signals = open_pair(manager, 2, False, hdwlib.SIGNAL_ARINC429_RECEIVED)
    fd = signals.fileno()
    assert fd >= 0 and select.select([fd], [], [], 0)[0] == []
    # Another thread runs Python while the waiter sits in the library.
    ticks, result, start = [], [], time.monotonic()
    waiter = threading.Thread(target=lambda: result.append(signals.wait(0.5)))
    waiter.start()
    while waiter.is_alive():
        ticks.append(1)
        time.sleep(0.001)
    assert result == [None] and time.monotonic() - start >= 0.4 and len(ticks) >= 3
    first, second = hdwlib.Arinc429Word(0o101, 2, 0x55, 1), hdwlib.Arinc429Word(0o001, 2, 7)
    out.write([first])
    s = signals.wait(DEADLINE_S)
    assert s is not None and s.kind == hdwlib.SIGNAL_ARINC429_RECEIVED
    assert s.word == first and s.frame is None
    out.write([second])
    assert select.select([fd], [], [], DEADLINE_S)[0] == [fd]
    assert [s.word.data for s in signals.read()] == [7]
    assert select.select([fd], [], [], 0)[0] == []
    assert collect(words, 2) == [first, second]
