#pragma once
// Byte streams over ARINC 429 of a command-protocol unit (every unit with
// ARINC 429 channels). The word layout and the receiver's checks are those
// of the generic classes. The input takes the stream's words from the
// receiver's events, and the receiver's label table passes the stream's
// label only. The output pushes its words with the push command and owns
// the transmitter's FIFO (the other outputs of a transmitter exclude it):
// it keeps at most 512 words in it, counted from the transmit events and
// corrected by a periodic FIFO status request. A critical-failure event
// sets either service to failed.

#include <HdwLib/bus/HdwArinc429ByteInBufferService.h>
#include <HdwLib/bus/HdwArinc429ByteOutBufferService.h>
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxOutputCount.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_HdwKvxArinc429ByteInBufferService : public CKVX_HdwArinc429ByteInBufferService {
public:
    explicit CKVX_HdwKvxArinc429ByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429ByteInBufferService() override;

    // Makes sure the receiver is on.
    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
};

class HDWLIB_EXPORT CKVX_HdwKvxArinc429ByteOutBufferService : public CKVX_HdwArinc429ByteOutBufferService {
public:
    explicit CKVX_HdwKvxArinc429ByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429ByteOutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;

    // Pushes queued bytes as words, keeping at most 512 in the unit's FIFO.
    unsigned SendImmediate();

protected:
    CKVX_HdwKvxOutputCount m_Count;
    CKVX_HdwKvxFifoStatusPoll m_StatusPoll;
    // The words of one push, kept from tick to tick.
    std::vector<CKVX_HdwArinc429Message> m_Batch;
    // The port it was enabled on (null when that is no unit transmitter).
    CKVX_HdwKvxArinc429TxPort* m_UnitPort;
};
