"""hdwtool monitor --log writes a candump log that python-can reads back
frame for frame, with the interface name of the port and wall-clock times."""

import pytest

can = pytest.importorskip("can", reason="python3-can is not installed (Debian package python3-can)")

FRAMES = ["123#DEADBEEF", "1F334455#R", "123#", "7FF#0102030405060708", "00000001#R2", "000#00"]


def expected(text):
    """(id, extended, remote, dlc, data) of a frame written as ID#DATA."""
    ident, data = text.split("#", 1)
    remote = data.startswith("R")
    dlc = int(data[1:] or 0) if remote else len(data) // 2
    return int(ident, 16), len(ident) == 8, remote, dlc, b"" if remote else bytes.fromhex(data)


def test_log_reads_back_with_python_can(sim_link, hdwtool, tmp_path):
    log = tmp_path / "can1.log"
    args = ["monitor", "--link", sim_link, "can:1", "--count", str(2 * len(FRAMES)), "--duration", "30",
            "--log", str(log), "--repeat", "2", "--interval", "50"]
    for f in FRAMES:
        args += ["--send", "can:0=" + f]
    status, out, err, before, after = hdwtool(*args)
    assert status == 0, err
    # The frames as monitor printed them are the ones in the log.
    assert [line.split()[-1] for line in out.splitlines()] == FRAMES * 2

    messages = list(can.LogReader(str(log)))
    assert len(messages) == 2 * len(FRAMES)
    for i, m in enumerate(messages):
        assert m.channel == "can1"
        assert (m.arbitration_id, m.is_extended_id, m.is_remote_frame, m.dlc,
                bytes(m.data or b"")) == expected(FRAMES[i % len(FRAMES)])
        # Wall-clock seconds within the run, in order.
        assert before - 1 <= m.timestamp <= after + 1
        assert i == 0 or m.timestamp >= messages[i - 1].timestamp
    # The two rounds went out 50 ms apart.
    assert messages[len(FRAMES)].timestamp - messages[0].timestamp > 0.02
