"""python-can interface "hdwlib": a CAN channel of an HdwLib unit as a can.Bus.

    bus = can.Bus(interface="hdwlib", channel="can:0", link="3:/dev/ttyUSB0", bitrate=500000)

``channel`` is the port name ("can:N", the manager's absolute number) or a
port-identifier key; ``link`` is "DEVICECODE:LINKTEXT". Buses on channels of
the same link share one manager (and so the unit) in the process.
"""

import collections
import os
import time

import can

from hdwlib import _shared
from hdwlib._errors import HdwError
from hdwlib._hdwlib import (
    PORT_CAN,
    SIGNAL_CAN_ERROR_REGISTER_CHANGED,
    SIGNAL_CAN_RECEIVED,
    SIGNAL_CAN_STATUS_CHANGED,
    SIGNAL_UNIT_BACK,
    SIGNAL_UNIT_LOST,
    CanFrame,
)

# Frames taken from the receive buffer in one read.
_READ_CHUNK = 128
# Signals taken in one read.
_SIGNAL_CHUNK = 64

# The unit's fault states (low byte of its CAN status word).
FAULT_ACTIVE, FAULT_PASSIVE, FAULT_BUS_OFF, FAULT_NOT_STARTED = 0, 1, 2, 3
_STATES = {FAULT_ACTIVE: can.BusState.ACTIVE, FAULT_PASSIVE: can.BusState.PASSIVE,
           FAULT_BUS_OFF: can.BusState.ERROR}

# Error frames in the SocketCAN layout (linux/can/error.h).
_ERR_CRTL, _ERR_BUSOFF, _ERR_RESTARTED = 0x004, 0x040, 0x100
_ERR_CRTL_PASSIVE, _ERR_CRTL_ACTIVE = 0x30, 0x40  # RX and TX passive; back to error active

# Where _detect_available_configs looks for links.
LINKS_VARIABLE = "HDWLIB_CAN_LINKS"


def _error_frame(before, after, registers, time_s, channel):
    """The error frame of a fault-state change, or None when it is none
    worth one (the controller starting or stopping)."""
    if after == FAULT_BUS_OFF:
        ident, state = _ERR_BUSOFF, 0
    elif after == FAULT_PASSIVE:
        ident, state = _ERR_CRTL, _ERR_CRTL_PASSIVE
    elif after == FAULT_ACTIVE and before in (FAULT_PASSIVE, FAULT_BUS_OFF):
        ident = _ERR_CRTL | (_ERR_RESTARTED if before == FAULT_BUS_OFF else 0)
        state = _ERR_CRTL_ACTIVE
    else:
        return None
    data = bytes([0, state, 0, 0, 0, registers & 0xFF, 0, 0])
    return can.Message(timestamp=time_s, arbitration_id=ident, is_extended_id=False, is_error_frame=True,
                       dlc=8, data=data, channel=channel, is_rx=True)


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
                 drain_timeout=5.0, reconnect=False, error_frames=True, **kwargs):
        if link is None:
            raise can.CanInitializationError('hdwlib needs link="DEVICECODE:LINKTEXT" (e.g. "3:/dev/ttyUSB0")')
        if kwargs.get("fd"):
            raise can.CanInterfaceNotImplementedError("hdwlib units have classic CAN only")
        self._link = str(link)
        self._drain_timeout = float(drain_timeout)
        self._queue = collections.deque()
        self._port = None
        self._error_frames = bool(error_frames)
        self._fault = FAULT_NOT_STARTED
        self._registers = 0
        self._unit_lost = False
        try:
            self._manager = _shared.acquire(self._link, echo_timeout_ms, reconnect=bool(reconnect))
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
            # Wakes the reader (the receive buffer holds the frames) and
            # brings the fault state and the unit's losses and returns.
            self._wake = self._port.enable_signals(
                [SIGNAL_CAN_RECEIVED, SIGNAL_CAN_STATUS_CHANGED, SIGNAL_CAN_ERROR_REGISTER_CHANGED,
                 SIGNAL_UNIT_LOST, SIGNAL_UNIT_BACK], 256)
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

    def _take(self, sig, errors):
        """Notes what a signal says; error frames go to ``errors``."""
        if sig.kind in (SIGNAL_CAN_STATUS_CHANGED, SIGNAL_CAN_ERROR_REGISTER_CHANGED):
            before, self._fault, self._registers = self._fault, sig.value, sig.aux
            frame = _error_frame(before, self._fault, self._registers, sig.time, self._channel)
            if frame is not None and self._error_frames and sig.kind == SIGNAL_CAN_STATUS_CHANGED:
                errors.append(frame)
        elif sig.kind in (SIGNAL_UNIT_LOST, SIGNAL_UNIT_BACK):
            self._unit_lost = sig.kind == SIGNAL_UNIT_LOST

    def _fill(self, errors):
        # Empty the wake-up queue before reading the buffer: a frame that
        # arrives after the read still leaves a signal behind.
        for sig in self._wake.read(_SIGNAL_CHUNK):
            self._take(sig, errors)
        frames = [_to_message(f, self._channel) for f in self._rx.read(_READ_CHUNK)]
        # Frames and error frames come by two paths: put them in time order.
        self._queue.extend(sorted(frames + errors, key=lambda m: m.timestamp) if errors else frames)
        errors.clear()

    def _recv_internal(self, timeout):
        if self._port is None:
            raise can.CanOperationError("the bus is shut down")
        deadline = None if timeout is None else time.monotonic() + timeout
        errors = []
        try:
            while not self._queue:
                self._fill(errors)
                if self._queue:
                    break
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    return None, False
                sig = self._wake.wait(left)
                if sig is not None:
                    self._take(sig, errors)
        except HdwError as e:
            raise can.CanOperationError(f"hdwlib {self._channel}: {e}", e.code) from e
        return self._queue.popleft(), False

    @property
    def state(self):
        """ERROR while the unit is lost (``reconnect=True``) or its
        controller is bus off, PASSIVE while error passive, else ACTIVE.
        Brought up to date by ``recv``."""
        if self._unit_lost:
            return can.BusState.ERROR
        return _STATES.get(self._fault, can.BusState.ACTIVE)

    @state.setter
    def state(self, new_state):
        raise NotImplementedError("hdwlib units have no listen-only mode")

    @property
    def fault_state(self):
        """The unit's fault state: 0 error active, 1 error passive, 2 bus
        off, 3 controller not started (as of the last ``recv``)."""
        return self._fault

    @property
    def error_registers(self):
        """The controller's two error-register bytes as the unit reports
        them, ``ErrReg0 | ErrReg1 << 8`` (as of the last ``recv``)."""
        return self._registers

    @staticmethod
    def _detect_available_configs():
        """The CAN ports on the links of ``HDWLIB_CAN_LINKS`` (or the
        ``links`` entry of the python-can configuration's ``[hdwlib]``
        section): "CODE:LINK" separated by commas or blanks. Links only:
        never a scan or broadcast. A link without a unit is left out."""
        text = os.environ.get(LINKS_VARIABLE)
        if text is None:
            try:
                text = can.util.load_file_config(section="hdwlib").get("links", "")
            except Exception:  # an unreadable configuration file: no links
                text = ""
        configs = []
        for link in text.replace(",", " ").split():
            try:
                manager = _shared.acquire(link, attempts=1)
            except (HdwError, ValueError):
                continue
            try:
                configs += [{"interface": "hdwlib", "channel": p.name, "link": link}
                            for p in manager.ports("can")]
            finally:
                _shared.release(link)
        return configs

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
