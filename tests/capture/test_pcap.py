"""hdwtool monitor --pcap writes a pcapng file that tshark reads field by
field: CAN frames as SocketCAN, ARINC 429 words through the project's Lua
dissector (label octal, SDI, data, SSM, parity and its verdict, channel,
direction), in either label order."""

import os
import shutil
import subprocess

import pytest

TSHARK = shutil.which("tshark")
if TSHARK is None:
    pytest.skip("tshark is not installed (Debian package tshark)", allow_module_level=True)
DISSECTOR = os.environ.get("HDWLIB_DISSECTOR", "")

A429_FIELDS = ["frame.interface_name", "hdwlib_a429.direction", "hdwlib_a429.channel", "hdwlib_a429.label",
               "hdwlib_a429.sdi", "hdwlib_a429.data", "hdwlib_a429.ssm", "hdwlib_a429.parity",
               "hdwlib_a429.parity_good", "hdwlib_a429.receiver_parity_error", "hdwlib_a429.word"]
CAN_FIELDS = ["frame.interface_name", "can.id", "can.flags.xtd", "can.flags.rtr", "can.len", "data.data"]


def tshark(path, display_filter, fields, *options):
    """One list of field values per packet that passes the filter."""
    args = [TSHARK, "-r", str(path), "-X", "lua_script:" + DISSECTOR, "-Y", display_filter, "-T", "fields",
            "-E", "separator=|", *options]
    for f in fields:
        args += ["-e", f]
    done = subprocess.run(args, capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    # tshark warns about running as root on stderr; Lua errors show there too.
    assert "Lua" not in done.stderr and "lua" not in done.stderr, done.stderr
    return [line.split("|") for line in done.stdout.splitlines()]


def test_can_and_arinc429_in_one_pcapng(sim_link, hdwtool, tmp_path):
    assert os.path.exists(DISSECTOR), "HDWLIB_DISSECTOR must name tools/wireshark/hdwlib_arinc429.lua"
    pcap = tmp_path / "monitor.pcapng"
    frames = ["123#DEADBEEF", "1F334455#R3", "7FF#", "00000001#0102030405060708"]
    words = ["label=203,sdi=1,data=0x1234,ssm=3", "label=203,parity=1"]  # the second with even parity
    sends = [x for w in words for x in ("--send", "a429tx:0=" + w)] + [x for f in frames for x in ("--send", "can:0=" + f)]
    status, _, err, before, after = hdwtool("monitor", "--link", sim_link, "a429rx:0", "a429tx:0", "can:1", "--count",
                                            str(2 * len(words) + len(frames)), "--duration", "30", "--pcap", str(pcap),
                                            *sends)
    assert status == 0, err

    # can.id in decimal; a remote request's length in bytes of zeros.
    assert tshark(pcap, "can", CAN_FIELDS) == [
        ["can1", str(0x123), "0", "0", "4", "deadbeef"], ["can1", str(0x1F334455), "1", "1", "3", "000000"],
        ["can1", str(0x7FF), "0", "0", "0", ""], ["can1", str(0x1), "1", "0", "8", "0102030405060708"]]
    # Received words first or sent ones first, each in the order sent.
    got = tshark(pcap, "hdwlib_a429", A429_FIELDS)
    rx = [r for r in got if r[1] == "rx"]
    tx = [r for r in got if r[1] == "tx"]
    # Booleans print as 1 and 0.
    good = ["0", "203", "1", "0x00001234", "3", "0", "1"]
    bad = ["0", "203", "0", "0x00000000", "0", "1", "0"]
    assert rx == [["a429rx0", "rx"] + good + ["0", "0x6048d183"], ["a429rx0", "rx"] + bad + ["1", "0x80000083"]]
    assert tx == [["a429tx0", "tx"] + good + ["0", "0x6048d183"], ["a429tx0", "tx"] + bad + ["0", "0x80000083"]]
    # Wall-clock time stamps of the run.
    for (t,) in tshark(pcap, "frame", ["frame.time_epoch"]):
        assert before - 1 <= float(t) <= after + 1


def test_wire_label_order_in_the_column_the_filter_and_the_dissector(sim_link, hdwtool, tmp_path):
    pcap = tmp_path / "wire.pcapng"
    # Raw low byte 0xC1 (0o301) is label 203 in wire order; 0x83 (0o203) is
    # label 301 then, and the --accept 203 filter keeps it out.
    status, out, err, _, _ = hdwtool("monitor", "--link", sim_link, "a429rx:0", "--label-order", "wire", "--accept",
                                     "203", "--count", "1", "--duration", "30", "--pcap", str(pcap),
                                     "--send", "a429tx:0=label=203,data=5", "--send", "a429tx:0=label=301,data=7")
    assert status == 0, err
    lines = [line.split() for line in out.splitlines()]
    assert [(w[2], w[4]) for w in lines] == [("203", "00007")]
    fields = ["hdwlib_a429.label", "hdwlib_a429.data", "hdwlib_a429.label_order"]
    assert tshark(pcap, "hdwlib_a429", fields) == [["203", "0x00000007", "wire"]]
    # The preference overrides what the record says.
    assert tshark(pcap, "hdwlib_a429", fields, "-o", "hdwlib_a429.label_order:reversed") == [
        ["301", "0x00000007", "reversed"]]
