#pragma once
// Byte services of a Sorrel UART. Input: the bytes of the unit's Data
// buffers, in number order, kept until Read (beyond BufferSize the oldest go
// and are counted). Output: the application's bytes wait here; every tick
// they go out in Data buffers of at most 1024 bytes, at most 8
// unacknowledged and never more than the unit's transmit buffer has room
// for; the oldest unacknowledged and all after it are sent again after
// 50 ms without an acknowledgement. When the unit's room is used up and
// nothing is unacknowledged, the latest acknowledged one is sent again
// every 50 ms: its acknowledgement carries the room the unit has now.
// Lock rule: the queues and the unacknowledged Data buffers only under the
// device lock (the tick holds it; the application's calls take it).

#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <vector>

class CKVX_HdwKvxSorrelUartPort;

class HDWLIB_EXPORT CKVX_HdwKvxSorrelByteInBufferService : public CKVX_HdwByteInBufferService {
public:
    explicit CKVX_HdwKvxSorrelByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxSorrelByteInBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    // Answers 4 when nothing waits.
    unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadBufferBytes(unsigned int& count) override;
    // Drops the buffer and asks the unit to drop its receive buffer; bytes
    // the unit sent before it did are not delivered.
    unsigned ResetReadBuffer() override;

    // Appends received bytes (caller holds the device lock).
    void Append(const uint8_t* bytes, size_t count);
    // Adds bytes the unit dropped to GetDroppedCount (the port's Close does,
    // from the unit's data context). Takes the device lock.
    void CountUnitDropped(uint64_t bytes);

protected:
    std::deque<uint8_t> m_Bytes;
    CKVX_HdwKvxSorrelUartPort* m_SorrelPort;
};

class HDWLIB_EXPORT CKVX_HdwKvxSorrelByteOutBufferService : public CKVX_HdwByteOutBufferService {
public:
    explicit CKVX_HdwKvxSorrelByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxSorrelByteOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Queues the bytes (option 0; other options answer 2).
    unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option) override;
    // Bytes queued here plus bytes sent and not yet acknowledged.
    unsigned GetBytesToBeWritten(unsigned int& count) override;
    // Drops the queued and unacknowledged bytes and asks the unit to drop
    // its transmit buffer; nothing goes out until it answered.
    unsigned ResetWriteBuffer() override;

    // Data buffers sent again after a missing acknowledgement, since Start.
    // Takes the device lock, as every access to the output's state does.
    uint64_t GetResendCount() const;
    // The unit was lost (caller holds the device lock): forgets the Data
    // buffers not acknowledged and answers their bytes plus those its
    // transmit buffer still held at the latest acknowledgement (gone with
    // its session). Queued bytes stay.
    uint64_t ForgetInFlight();
    // The port was opened again on the unit (caller holds the device lock):
    // numbering from 0, its transmit buffer empty; the queued bytes go out
    // from the next tick.
    void Resume();

protected:
    struct CSent {
        uint32_t Number = 0;
        std::vector<uint8_t> Data;
        std::chrono::steady_clock::time_point At;
    };

    void TakeAcknowledgement();
    void SendNew(std::chrono::steady_clock::time_point now);
    unsigned SendData(const CSent& packet);

    std::deque<uint8_t> m_Bytes;
    std::deque<CSent> m_Unacked;
    // The latest acknowledged Data buffer: sent again as a probe when the
    // unit's room is used up and its acknowledgement with new room was lost.
    CSent m_Probe;
    uint32_t m_Next = 0;
    int64_t m_Credit = 0;
    uint32_t m_UnitFree = 0; // transmit buffer free bytes at the latest acknowledgement
    bool m_HaveAck = false;
    uint32_t m_LastAck = 0;
    bool m_ResetPending = false;
    std::chrono::steady_clock::time_point m_ResetAt;
    uint64_t m_Resends = 0;
    CKVX_HdwKvxSorrelUartPort* m_SorrelPort;
};
