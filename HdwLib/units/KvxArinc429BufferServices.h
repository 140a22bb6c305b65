#pragma once
// ARINC 429 buffer services of a command-protocol unit. Input: the words of
// the receiver's events, filtered and kept until Read; the unit's label
// table follows the filter while the service runs. Output: the
// application's words wait here; every tick SendImmediate pushes as many as
// keep at most 512 in the unit's FIFO; transmit events confirm them and a
// periodic FIFO status request corrects the count should one be lost.
// A critical-failure event sets either service to failed.

#include <HdwLib/bus/HdwArinc429InBufferService.h>
#include <HdwLib/bus/HdwArinc429OutBufferService.h>
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxOutputCount.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwKvxArinc429InBufferService : public CKVX_HdwArinc429InBufferService {
public:
    explicit CKVX_HdwKvxArinc429InBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429InBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned Read(CKVX_HdwArinc429Message* messages, unsigned int maxCount, unsigned int& readCount) override;
    unsigned GetReadMessagesNumber(unsigned int& count) override;
    unsigned EnableRx() override;
    unsigned DisableRx() override;
    unsigned ResetRx() override;
    // The filter changes reach the unit's label table while the service runs.
    unsigned AcceptMessage(unsigned char label, unsigned char sdiMask, unsigned char ssmMask) override;
    unsigned AcceptAllMessages() override;
    unsigned DiscardAllMessages() override;
    unsigned DiscardMessage(unsigned char label) override;

    // The unit's label table for this filter: label flagged when any SDI/SSM
    // combination of it is accepted. Caller holds the device lock.
    void GetLabelTable(uint8_t* flags) const;

protected:
    unsigned char ApplyFilter(CKVX_HdwArinc429Message& message, unsigned short* filter) override;

    unsigned ReconfigureChannel(bool enable);
    unsigned ReconfigureFilter();
};

class HDWLIB_EXPORT CKVX_HdwKvxArinc429OutBufferService : public CKVX_HdwArinc429OutBufferService {
public:
    explicit CKVX_HdwKvxArinc429OutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429OutBufferService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    // Queues the words (option 0; other options answer HDW_ERR_ARGUMENT).
    // HDW_ERR_ARGUMENT when they do not fit the buffer (BufferSize, 0 = no bound).
    unsigned Write(CKVX_HdwArinc429Message* messages, unsigned int count, unsigned char option) override;
    // Pushes queued words, keeping at most 512 in the unit's FIFO.
    unsigned SendImmediate();
    // Words queued here plus words in the unit's FIFO not yet on the bus.
    unsigned GetMessagesToBeWritten(unsigned int& count) override;
    unsigned ResetWriteBuffer() override;

protected:
    CKVX_HdwKvxOutputCount m_Count;
    CKVX_HdwKvxFifoStatusPoll m_StatusPoll;
    // The port it was enabled on (null when that is no unit transmitter).
    CKVX_HdwKvxArinc429TxPort* m_UnitPort;
};
