#pragma once
// Byte services of the PC serial-port device (nested in
// CKVX_HdwStdUartDevice). Included by HdwStdUartDevice.h.
//
// The line has no unit behind it: each tick, under the device lock, the input
// service drains what the line has queued into its own buffer and the output
// service hands its buffer to the line, keeping no more than
// OutputHighWater bytes in the driver's output queue so that a tick never
// waits on a slow line. A hung-up line or a write that times out sets the
// service to failed (15 from its calls).

#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwStdUartDevice::CByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    explicit CByteInBufferService(CKVX_HdwObject* port);
    ~CByteInBufferService() override;

    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Start() override;
    unsigned Stop() override;
    // 29 while stopped, 15 once failed.
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadBufferBytes(unsigned int& count) override;
    unsigned ResetReadBuffer() override;

    // Bytes dropped, oldest first, because the buffer was full.
    uint64_t GetDroppedCount();

private:
    std::deque<unsigned char> m_Bytes;
    uint64_t m_Dropped = 0;
};

class HDWLIB_EXPORT CKVX_HdwStdUartDevice::CByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    // Most bytes left in the driver's output queue at the end of a tick.
    static constexpr unsigned OutputHighWater = 4096;

    explicit CByteOutBufferService(CKVX_HdwObject* port);
    ~CByteOutBufferService() override;

    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Start() override;
    unsigned Stop() override;
    // Queues the bytes; 2 for an `option` other than 0 or when they do not
    // fit the buffer (BufferSize, unlimited when 0); 29 stopped, 15 failed.
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Bytes queued here and in the driver's output queue.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    unsigned ResetWriteBuffer() override;

private:
    std::deque<unsigned char> m_Bytes;
};
