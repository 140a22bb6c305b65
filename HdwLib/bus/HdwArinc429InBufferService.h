#pragma once
// Receive FIFO of an ARINC 429 receiver (service type 4): every received word
// that passes the per-label filter is appended to Messages, and the
// application drains them with Read.
//
// The filter has one 16-bit mask per label, bit (SDI + 4 x SSM) set for each
// accepted SDI/SSM pair; a new service accepts everything and the filter
// survives Start and Stop.
//
// This class keeps the parameters, the filter and the list. A unit driver
// derives from it and supplies the data path (Read, GetReadMessagesNumber,
// ResetRx and the Rx commands answer 8 here):
//   - ProcessEvent, under the device lock the driver already holds:
//     AppendReceived(message, eventTime);
//   - Read / GetReadMessagesNumber: ReadMessages / CountMessages, which take
//     the device lock once per call.
// Lock rule: BufferSize, LabelFilter and Messages are touched only under the
// device lock, except by GetBufferSize and ApplyFilter, which the driver
// calls while it holds the lock.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429InBufferService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // Capacity in messages; fill it before SetParameters (0 = no bound).
        uint32_t BufferSize = 0;
    };

    explicit CKVX_HdwArinc429InBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwArinc429InBufferService() override;

    // Empty Messages and set the run state (1 / 0); the filter stays.
    unsigned Start() override;
    unsigned Stop() override;

protected:
    // 1 when bit (SDI + 4 x SSM) of filter[label] is set. Caller holds the lock.
    virtual unsigned char ApplyFilter(CKVX_HdwArinc429Message& message, unsigned short* filter);

public:
    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    virtual unsigned GetReadMessagesNumber(unsigned int& count);
    virtual unsigned Read(CKVX_HdwArinc429Message* messages, unsigned int maxCount, unsigned int& readCount);
    virtual unsigned AcceptAllMessages();
    virtual unsigned DiscardAllMessages();
    // Mask bit b is set when bit (b & 3) of sdiMask and bit (b >> 2) of ssmMask are.
    virtual unsigned AcceptMessage(unsigned char label, unsigned char sdiMask, unsigned char ssmMask);
    virtual unsigned DiscardMessage(unsigned char label);
    virtual unsigned EnableRx();
    virtual unsigned DisableRx();
    virtual unsigned ResetRx();

    // Reads BufferSize without the lock (for the driver, which holds it).
    unsigned GetBufferSize() const { return BufferSize; }
    // Filter entry of one label, read under the device lock.
    unsigned short GetLabelFilter(unsigned char label);
    // Words lost because the list was full, since Start.
    uint64_t GetDroppedCount();

    // The 16-bit filter mask AcceptMessage stores.
    static unsigned short MakeFilterMask(unsigned char sdiMask, unsigned char ssmMask);

protected:
    // Driver's receive path, caller holds the device lock: applies the
    // filter, stamps the word with the event time and appends it (a full
    // list drops its oldest word). True when the word was kept.
    bool AppendReceived(const CKVX_HdwArinc429Message& message, uint64_t eventTime);
    // Read's work: 29 stopped, 15 failed, 2 no array for a non-zero count;
    // otherwise moves up to maxCount words under one device lock.
    unsigned ReadMessages(CKVX_HdwArinc429Message* messages, unsigned maxCount, unsigned& readCount);
    // GetReadMessagesNumber's work: count 0, then 29 / 15, else the length.
    unsigned CountMessages(unsigned& count);

    uint32_t BufferSize = 10000;
    unsigned short* LabelFilter;
    CKVX_HdwArinc429MessageList Messages;
    uint64_t m_Dropped = 0;
};
