"""Words, frames and errors as Python objects (no unit needed)."""

import pickle

import pytest

import hdwlib


class TestArinc429Word:
    def test_fields_pack_into_the_bus_word_with_odd_parity(self):
        # Label 203 (octal), SDI 1, data 0x1234, SSM 3 is 0x6048D183 on the bus.
        w = hdwlib.Arinc429Word(0o203, 1, 0x1234, 3)
        assert w.raw == 0x6048D183
        assert int(w) == 0x6048D183
        assert bin(w.raw).count("1") % 2 == 1

    def test_raw_round_trip_and_parity_check(self):
        w = hdwlib.Arinc429Word.from_raw(0x6048D183, time=12.5)
        assert (w.label, w.sdi, w.data, w.ssm, w.parity_ok, w.time) == (0o203, 1, 0x1234, 3, True, 12.5)
        bad = hdwlib.Arinc429Word.from_raw(0x6048D183 ^ 0x80000000)
        assert not bad.parity_ok
        assert bad.raw == 0x6048D183 ^ 0x80000000
        assert bad != w

    def test_extreme_fields(self):
        w = hdwlib.Arinc429Word(0xFF, 3, 0x7FFFF, 3)
        assert w.raw & 0x7FFFFFFF == 0x7FFFFFFF
        assert hdwlib.Arinc429Word.from_raw(w.raw).data == 0x7FFFF

    @pytest.mark.parametrize("args", [(256, 0, 0, 0), (1, 4, 0, 0), (1, 0, 0x80000, 0), (1, 0, 0, 4)])
    def test_out_of_range_fields_are_refused(self, args):
        with pytest.raises(ValueError):
            hdwlib.Arinc429Word(*args)


class TestCanFrame:
    def test_standard_and_extended_identifiers(self):
        assert not hdwlib.CanFrame(0x7FF).extended
        assert hdwlib.CanFrame(0x800).extended
        assert hdwlib.CanFrame(0x123, extended=True).extended
        f = hdwlib.CanFrame(0x1F334455, b"\x01\x02\x03")
        assert (f.id, f.data, f.dlc, f.rtr) == (0x1F334455, b"\x01\x02\x03", 3, False)
        assert repr(f) == "CanFrame(1F334455#010203)"

    def test_remote_frame_keeps_its_length_code(self):
        f = hdwlib.CanFrame(0x123, rtr=True, dlc=4)
        assert f.rtr and f.dlc == 4 and f.data == b""

    @pytest.mark.parametrize(
        "kwargs",
        [dict(id=0x800, extended=False), dict(id=0x20000000), dict(id=1, data=bytes(9)), dict(id=1, dlc=16),
         dict(id=1, data=b"\x01\x02", dlc=1)],
    )
    def test_invalid_frames_are_refused(self, kwargs):
        with pytest.raises(ValueError):
            hdwlib.CanFrame(**kwargs)

    def test_equality_ignores_time(self):
        assert hdwlib.CanFrame(5, b"\x01", time=1.0) == hdwlib.CanFrame(5, b"\x01", time=2.0)
        assert hdwlib.CanFrame(5, b"\x01") != hdwlib.CanFrame(5, b"\x02")


class TestHdwError:
    def test_carries_code_text_and_context(self):
        e = hdwlib.HdwError(19, hdwlib.result_text(19), "open the port")
        assert (e.code, e.context) == (19, "open the port")
        assert e.text and e.text != hdwlib.result_text(2)
        assert str(e) == f"open the port: {e.text} (result 19)"
        again = pickle.loads(pickle.dumps(e))
        assert (again.code, again.text, again.context) == (e.code, e.text, e.context)

    def test_a_failed_call_raises_it(self):
        m = hdwlib.Manager(["halden"])
        with pytest.raises(hdwlib.HdwError) as info:
            m.enumerate(["3:/dev/hdwlib-no-such-tty"])
        assert info.value.code != 0
        assert info.value.text == hdwlib.result_text(info.value.code)

    def test_unknown_drivers_and_malformed_links_are_value_errors(self):
        with pytest.raises(ValueError):
            hdwlib.Manager(["nosuchunit"])
        with pytest.raises(ValueError):
            hdwlib.Manager().enumerate(["/dev/ttyUSB0"])
