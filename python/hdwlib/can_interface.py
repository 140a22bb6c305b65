"""python-can interface "hdwlib": a CAN channel of an HdwLib unit as a can.Bus.

    bus = can.Bus(interface="hdwlib", channel="can:0", link="3:/dev/ttyUSB0", bitrate=500000)

``channel`` is the port name ("can:N", the manager's absolute number) or a
port-identifier key; ``link`` is "DEVICECODE:LINKTEXT". Buses on channels of
the same link share one manager (and so the unit) in the process.
"""

import collections
import time

import can

from hdwlib import _shared
from hdwlib._errors import HdwError
from hdwlib._hdwlib import PORT_CAN, SIGNAL_CAN_RECEIVED, CanFrame

# Frames taken from the receive buffer in one read.
_READ_CHUNK = 128


def _to_message(frame, channel):
    return can.Message(
        timestamp=frame.time,
        arbitration_id=frame.id,
        is_extended_id=frame.extended,
        is_remote_frame=frame.rtr,
        dlc=frame.dlc,
        data=frame.data,
        channel=channel,
        is_rx=True,
    )


def _to_frame(msg):
    if msg.is_fd or msg.is_error_frame:
        raise can.CanOperationError("hdwlib sends classic CAN data and remote frames only")
    data = b"" if msg.is_remote_frame else bytes(msg.data[: msg.dlc])
    return CanFrame(msg.arbitration_id, data, msg.is_extended_id, msg.is_remote_frame, 0.0, msg.dlc)


class HdwlibBus(can.BusABC):
    """A CAN port of an HdwLib unit.

    Filters: the units have no identifier acceptance filter, so
    ``can_filters`` are applied here in Python (python-can's own matching)
    after the frames have crossed the link.
    """

    def __init__(self, channel="can:0", link=None, bitrate=500000, can_filters=None, sample_point=None,
                 receive_buffer=10000, transmit_buffer=1000, open_timeout_ms=None, echo_timeout_ms=None,
                 drain_timeout=5.0, **kwargs):
        if link is None:
            raise can.CanInitializationError('hdwlib needs link="DEVICECODE:LINKTEXT" (e.g. "3:/dev/ttyUSB0")')
        if kwargs.get("fd"):
            raise can.CanInterfaceNotImplementedError("hdwlib units have classic CAN only")
        self._link = str(link)
        self._drain_timeout = float(drain_timeout)
        self._queue = collections.deque()
        self._port = None
        try:
            self._manager = _shared.acquire(self._link, echo_timeout_ms)
        except (HdwError, ValueError) as e:
            raise can.CanInitializationError(f"hdwlib link {self._link}: {e}") from e
        self._acquired = True
        try:
            self._port = self._manager.port(str(channel))
            if self._port.type != PORT_CAN:
                raise can.CanInitializationError(f"{channel} is no CAN port")
            if self._port.is_open:
                raise can.CanInitializationError(f"{channel} is already open in this process")
            self._rx = self._port.enable_can_in(receive_buffer)
            self._tx = self._port.enable_can_out(transmit_buffer)
            # Only wakes the reader: the receive buffer holds the frames.
            self._wake = self._port.enable_signals([SIGNAL_CAN_RECEIVED], 16)
            params = {"bitrate": int(bitrate)}
            if sample_point is not None:
                params["sample_point"] = float(sample_point)
            if open_timeout_ms is not None:
                params["timeout"] = int(open_timeout_ms)
            self._port.open(**params)
        except (HdwError, KeyError, ValueError) as e:
            self._release()
            raise can.CanInitializationError(f"hdwlib {channel} on {self._link}: {e}") from e
        except BaseException:
            self._release()
            raise
        self.channel_info = f"hdwlib {channel} on {self._link}"
        self._channel = str(channel)
        super().__init__(channel=channel, can_filters=can_filters, **kwargs)

    def _drain(self):
        # Frames still queued for the unit go out before the port closes
        # (can.player shuts down right after its last send).
        end = time.monotonic() + self._drain_timeout
        try:
            while self._tx.pending and time.monotonic() < end:
                time.sleep(0.001)
        except HdwError:
            pass

    def _release(self):
        if self._port is not None and self._port.is_open:
            try:
                self._port.close()
            except HdwError:
                pass
        self._port = None
        if self._acquired:
            self._acquired = False
            _shared.release(self._link)

    def _fill(self):
        # Empty the wake-up queue before reading the buffer: a frame that
        # arrives after the read still leaves a signal behind.
        self._wake.read(16)
        for frame in self._rx.read(_READ_CHUNK):
            self._queue.append(frame)

    def _recv_internal(self, timeout):
        if self._port is None:
            raise can.CanOperationError("the bus is shut down")
        deadline = None if timeout is None else time.monotonic() + timeout
        try:
            while not self._queue:
                self._fill()
                if self._queue:
                    break
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    return None, False
                self._wake.wait(left)
        except HdwError as e:
            raise can.CanOperationError(f"hdwlib {self._channel}: {e}", e.code) from e
        return _to_message(self._queue.popleft(), self._channel), False

    def send(self, msg, timeout=None):
        if self._port is None:
            raise can.CanOperationError("the bus is shut down")
        try:
            self._tx.write([_to_frame(msg)])
        except ValueError as e:
            raise can.CanOperationError(str(e)) from e
        except HdwError as e:
            raise can.CanOperationError(f"hdwlib {self._channel}: {e}", e.code) from e

    def fileno(self):
        """Readable while a frame may wait (for select and asyncio)."""
        return self._wake.fileno()

    def flush_tx_buffer(self):
        pass

    def shutdown(self):
        """Stops periodic tasks, lets queued frames go out (up to
        ``drain_timeout`` seconds), closes the port and drops this bus's hold
        on the unit: the last bus of a link stops its manager."""
        super().shutdown()
        if self._port is not None:
            self._drain()
        self._release()
