"""One manager per unit link in the process, shared by reference count.

A unit's link belongs to one process and one manager in it: two python-can
buses on channels of the same unit must use the same manager.
"""

import atexit
import threading

from hdwlib._errors import HdwError
from hdwlib._hdwlib import Manager, drivers

# Enumeration probes a link for a fixed time, which a loaded machine can
# miss; it is tried this many times before the link counts as dead.
ENUMERATE_ATTEMPTS = 5

_lock = threading.Lock()
_units = {}  # "CODE:LINK" -> [manager, references]


def _key(link):
    # "halden:..." and "3:..." are one link: the key holds the code.
    code, sep, text = link.partition(":")
    code = code.strip().lower()
    if not sep or not code or not text:
        raise ValueError(f'link "{link}" is not DEVICECODE:LINKTEXT (3:/dev/ttyUSB0, 3:udp:127.0.0.1:55003)')
    code = str(dict(drivers()).get(code, code))
    return f"{code}:{text.strip()}"


def acquire(link, echo_timeout_ms=None, reconnect=False, attempts=ENUMERATE_ATTEMPTS):
    """The running manager of ``link`` ("DEVICECODE:LINKTEXT"), enumerated
    (up to ``attempts`` tries) and started on first use, with
    ``echo_timeout_ms`` for its driver when given and the reconnect of lost
    units when ``reconnect`` (the first user decides both); pair each call
    with release(link)."""
    key = _key(link)
    with _lock:
        entry = _units.get(key)
        if entry is None:
            code = key.partition(":")[0]
            manager = Manager([int(code) if code.isdigit() else code])
            if echo_timeout_ms is not None:
                manager.set_echo_timeout(int(echo_timeout_ms))
            for attempt in range(attempts):
                try:
                    manager.enumerate([key])
                    break
                except HdwError:
                    if attempt + 1 == attempts:
                        raise
            manager.run(reconnect=reconnect)
            entry = _units[key] = [manager, 0]
        entry[1] += 1
        return entry[0]


def release(link):
    """Drops one reference; the last one stops the manager."""
    key = _key(link)
    with _lock:
        entry = _units.get(key)
        if entry is None:
            return
        entry[1] -= 1
        if entry[1] > 0:
            return
        del _units[key]
    entry[0].stop()


def users(link):
    """How many holders ``link``'s manager has (0: none running)."""
    with _lock:
        entry = _units.get(_key(link))
        return entry[1] if entry else 0


@atexit.register
def _stop_all():
    # Buses never shut down: stop their managers (and timer threads) while
    # the interpreter is still whole.
    with _lock:
        entries = list(_units.values())
        _units.clear()
    for manager, _ in entries:
        manager.stop()
