"""HdwLib for Python: interface units for ARINC 429, CAN, UARTs, discrete I/O, I2C and SPI.

    import hdwlib
    manager = hdwlib.Manager(["halden"])
    manager.enumerate(["3:/dev/ttyUSB0"])
    manager.run()
    rx = manager.port("a429rx:0")
    words = rx.enable_arinc429_in()
    rx.open(rate=100000)

See docs/python.md.
"""

from hdwlib._errors import HdwError
from hdwlib._hdwlib import *  # noqa: F401,F403
from hdwlib._hdwlib import (  # noqa: F401
    Arinc429Word,
    CanFrame,
    DiscreteChange,
    DiscreteIn,
    DiscreteOut,
    I2cMaster,
    I2cTransfer,
    Manager,
    Port,
    PortInfo,
    Signal,
    SignalService,
    SpiMaster,
    SpiTransfer,
    UartInBuffer,
    UartOutBuffer,
    result_text,
)

__all__ = [name for name in dir() if not name.startswith("_")]
