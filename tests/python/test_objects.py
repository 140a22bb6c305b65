"""Words, frames and errors as Python objects (no unit needed)."""

import pickle

import pytest

import hdwlib


def test_arinc429_word_fields_pack_into_the_bus_word_with_odd_parity_and_back():
    # Label 203 (octal), SDI 1, data 0x1234, SSM 3 is 0x6048D183 on the bus.
    w = hdwlib.Arinc429Word(0o203, 1, 0x1234, 3)
    assert w.raw == int(w) == 0x6048D183
    assert bin(w.raw).count("1") % 2 == 1
    # From the raw word, with the parity check.
    w = hdwlib.Arinc429Word.from_raw(0x6048D183, time=12.5)
    assert (w.label, w.sdi, w.data, w.ssm, w.parity_ok, w.time) == (0o203, 1, 0x1234, 3, True, 12.5)
    bad = hdwlib.Arinc429Word.from_raw(0x6048D183 ^ 0x80000000)
    assert not bad.parity_ok and bad.raw == 0x6048D183 ^ 0x80000000
    assert bad != w
    top = hdwlib.Arinc429Word(0xFF, 3, 0x7FFFF, 3)  # every field at its top
    assert top.raw & 0x7FFFFFFF == 0x7FFFFFFF and hdwlib.Arinc429Word.from_raw(top.raw).data == 0x7FFFF


def test_can_frame_standard_and_extended_identifiers():
    assert not hdwlib.CanFrame(0x7FF).extended and hdwlib.CanFrame(0x800).extended
    assert hdwlib.CanFrame(0x123, extended=True).extended
    f = hdwlib.CanFrame(0x1F334455, b"\x01\x02\x03")
    assert (f.id, f.data, f.dlc, f.rtr) == (0x1F334455, b"\x01\x02\x03", 3, False)
    assert repr(f) == "CanFrame(1F334455#010203)"
    remote = hdwlib.CanFrame(0x123, rtr=True, dlc=4)  # keeps its length code
    assert remote.rtr and remote.dlc == 4 and remote.data == b""


def test_hdw_error_carries_code_text_and_context_and_a_failed_call_raises_it():
    e = hdwlib.HdwError(19, hdwlib.result_text(19), "open the port")
    assert (e.code, e.context) == (19, "open the port")
    assert e.text and e.text != hdwlib.result_text(2)
    assert str(e) == f"open the port: {e.text} (result 19)"
    again = pickle.loads(pickle.dumps(e))
    assert (again.code, again.text, again.context) == (e.code, e.text, e.context)
    # A failed call raises it with the library's text of its code.
    m = hdwlib.Manager(["halden"])
    with pytest.raises(hdwlib.HdwError) as info:
        m.enumerate(["3:/dev/hdwlib-no-such-tty"])
    assert info.value.code != 0
    assert info.value.text == hdwlib.result_text(info.value.code)


@pytest.mark.parametrize("make", [
    lambda: hdwlib.Arinc429Word(256, 0, 0, 0), lambda: hdwlib.Arinc429Word(1, 0, 0x80000, 0),
    lambda: hdwlib.CanFrame(0x800, extended=False), lambda: hdwlib.CanFrame(1, bytes(9)),
    lambda: hdwlib.Manager(["nosuchunit"]), lambda: hdwlib.Manager().enumerate(["/dev/ttyUSB0"]),
])
def test_out_of_range_values_are_value_errors(make):
    with pytest.raises(ValueError):
        make()
