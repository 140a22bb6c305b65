#pragma once
// Byte services of a command-protocol unit's UART channel. Input: the bytes
// of the channel's receive events, kept until Read (the oldest dropped and
// counted beyond BufferSize). Output: the application's bytes wait here;
// every tick SendImmediate turns as many into transmit records as the next
// frame takes; the unit's transmit events confirm them.
// A critical-failure event sets either service to failed.

#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxOutputCount.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwKvxUartByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    explicit CKVX_HdwKvxUartByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxUartByteInBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadBufferBytes(unsigned int& count) override;
    unsigned ResetReadBuffer() override;

protected:
    std::deque<uint8_t> m_Bytes;
};

class HDWLIB_EXPORT CKVX_HdwKvxUartByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    explicit CKVX_HdwKvxUartByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxUartByteOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Queues the bytes (option 0; other options answer HDW_ERR_ARGUMENT).
    // HDW_ERR_ARGUMENT when they do not fit the buffer (BufferSize, 0 = no bound).
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Turns queued bytes into transmit records, as many as the frame takes.
    unsigned SendImmediate();
    // Bytes queued here plus bytes sent and not yet confirmed by the unit.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    unsigned ResetWriteBuffer() override;

protected:
    std::deque<uint8_t> m_Bytes;
    CKVX_HdwKvxOutputCount m_Count;
    // The port it was enabled on (null when that is no unit UART port).
    CKVX_HdwKvxUartPort* m_UnitPort;
};
