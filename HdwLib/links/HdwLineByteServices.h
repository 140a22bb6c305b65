#pragma once
// Byte input and output services (types 2 and 3) of ports whose bytes travel
// over a line of the PC with no unit behind it: the PC serial ports and the
// datagram links. The port implements CKVX_HdwByteLine.
//
// Each tick, under the device lock, the input service drains what the line
// has received into its own buffer (the oldest bytes are dropped, and
// counted, when it is full) and the output service hands its buffer to the
// line as far as the line takes it without waiting, so a tick never waits on
// a slow line and a large Write loses nothing. A line that hangs up or loses
// a write sets the service to failed (15 from its calls).

#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwLineByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    explicit CKVX_HdwLineByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwLineByteInBufferService() override;

    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Start() override;
    unsigned Stop() override;
    // 29 while stopped, 15 once failed.
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadBufferBytes(unsigned int& count) override;
    unsigned ResetReadBuffer() override;

    // Most bytes one tick takes from the line.
    static constexpr unsigned MaxReadPerTick = 64 * 1024;

private:
    std::deque<unsigned char> m_Bytes;
};

class HDWLIB_EXPORT CKVX_HdwLineByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    explicit CKVX_HdwLineByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwLineByteOutBufferService() override;

    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Start() override;
    unsigned Stop() override;
    // Queues the bytes; 2 for an `option` other than 0 or when they do not
    // fit the buffer (BufferSize, unlimited when 0); 29 stopped, 15 failed.
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Bytes queued here and in the line's output queue.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    unsigned ResetWriteBuffer() override;

    // Most bytes one tick hands to the line (4 MB/s at a 1 ms tick).
    static constexpr unsigned MaxWritePerTick = 4096;

private:
    std::deque<unsigned char> m_Bytes;
    // Since when (monotonic ms) the line has taken none of what it was offered.
    uint64_t m_StallStartMs = 0;
    bool m_Stalled = false;
};
