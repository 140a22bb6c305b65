#pragma once
// What the line byte services (HdwLineByteServices.h) need of the port they
// run on. A port whose bytes travel over a line of the PC itself, with no unit
// behind it (a serial port, a datagram link), implements it next to its port
// class. Called in the tick, under the device lock.

#include <HdwLib/HdwLibExport.h>

class HDWLIB_EXPORT CKVX_HdwByteLine {
public:
    virtual ~CKVX_HdwByteLine();

    // True while the line is open and can carry bytes.
    virtual bool LineIsOpen() = 0;
    // Takes what the line has received, up to maxBytes: 0, or non-zero once
    // the line has failed or hung up.
    virtual unsigned LineRead(unsigned char* buffer, unsigned maxBytes, unsigned& bytesRead) = 0;
    // Bytes the line takes now without making the caller wait.
    virtual unsigned LineWriteRoom() = 0;
    // Writes what the line takes at once of `count` bytes (no more than
    // LineWriteRoom), never waiting: `written` says how many. 0, or non-zero
    // once the line has failed.
    virtual unsigned LineWrite(const unsigned char* data, unsigned count, unsigned& written) = 0;
    // How long (ms) the line may take nothing offered to it before the output
    // service gives the bytes up and fails.
    virtual unsigned LineWriteTimeout() = 0;
    // Bytes written but still waiting in the line's own output queue.
    virtual unsigned LineQueued() = 0;
};
