#!/usr/bin/env python3
"""Answers every CAN frame on one channel of a unit with the same data under
identifier + 1, using python-can with HdwLib's "hdwlib" interface.

    can_echo.py --link 3:/dev/ttyUSB0 --channel can:0 --bitrate 500000 [--count N]

Against the emulator, whose can:0 and can:1 share one bus, --peer can:1 sends
a few frames from the other channel and prints what comes back.
"""

import argparse

import can


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--link", required=True, help="DEVICECODE:LINKTEXT, e.g. 3:udp:127.0.0.1:55003")
    ap.add_argument("--channel", default="can:0")
    ap.add_argument("--bitrate", type=int, default=500000)
    ap.add_argument("--count", type=int, default=0, help="stop after N echoes (0: run until Ctrl-C)")
    ap.add_argument("--peer", help="a second channel of the same unit that sends 3 frames and prints the echoes")
    args = ap.parse_args()

    with can.Bus(interface="hdwlib", channel=args.channel, link=args.link, bitrate=args.bitrate) as bus:
        peer = None
        if args.peer:
            peer = can.Bus(interface="hdwlib", channel=args.peer, link=args.link, bitrate=args.bitrate)
            for i in range(3):
                peer.send(can.Message(arbitration_id=0x100 + 2 * i, data=bytes([i] * 4), is_extended_id=False))
            args.count = args.count or 3
        echoed = 0
        try:
            while args.count == 0 or echoed < args.count:
                msg = bus.recv(timeout=1.0)
                if msg is None:
                    continue
                bus.send(can.Message(arbitration_id=msg.arbitration_id + 1, data=msg.data,
                                     is_extended_id=msg.is_extended_id))
                echoed += 1
                print(f"{msg.timestamp:.6f} {msg.arbitration_id:X}#{msg.data.hex().upper()} -> "
                      f"{msg.arbitration_id + 1:X}")
            if peer:
                for _ in range(echoed):
                    back = peer.recv(timeout=5.0)
                    if back is not None:
                        print(f"{args.peer} got {back.arbitration_id:X}#{back.data.hex().upper()}")
        except KeyboardInterrupt:
            pass
        finally:
            if peer:
                peer.shutdown()


if __name__ == "__main__":
    main()
