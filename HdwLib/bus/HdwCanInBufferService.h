#pragma once
// Receive FIFO of a CAN channel (service type 9). This class keeps the list,
// the capacity and the run state; Read and ResetRx answer 8 and are
// overridden by the unit driver:
//   - ProcessEvent, under the device lock the driver already holds:
//     AppendReceived(frame, eventTime);
//   - Read: ReadMessages, which takes the device lock once per call.
// Lock rule: Messages, BufferSize and RxFlag only under the device lock.

#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwCanInBufferService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CMessageBuffer : public CKVX_List<CKVX_HdwCanMessage> {
    public:
        CMessageBuffer() = default;
        CMessageBuffer(const CMessageBuffer&) = default;
        CMessageBuffer(CMessageBuffer&&) = default;
        CMessageBuffer& operator=(const CMessageBuffer&) = default;
        CMessageBuffer& operator=(CMessageBuffer&&) = default;
        ~CMessageBuffer() override;
    };

    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 1000; // capacity in frames (0 = no bound)
    };

    explicit CKVX_HdwCanInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwCanInBufferService() override;

    // Empty Messages, clear RxFlag and set the run state (1 / 0).
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    // The owning port's fault status.
    virtual unsigned GetFaultStatus(CKVX_HdwCanPort::CFaultStatus* status);
    // count 0, then 29 stopped / 15 failed, else the number of waiting frames.
    virtual unsigned GetReadMessagesNumber(unsigned int& count);
    virtual unsigned Read(CKVX_HdwCanMessage* messages, unsigned int maxCount, unsigned int& readCount);
    virtual unsigned EnableRx();
    virtual unsigned DisableRx();
    virtual unsigned ResetRx();

    // Frames lost because the list was full, since Start.
    uint64_t GetDroppedCount();

protected:
    // Driver's receive path, caller holds the device lock: stamps the frame
    // with the event time and appends it (a full list drops its oldest).
    void AppendReceived(const CKVX_HdwCanMessage& message, uint64_t eventTime);
    // Read's work: 29 stopped, 15 failed, 2 no array for a non-zero count;
    // otherwise moves up to maxCount frames under one device lock.
    unsigned ReadMessages(CKVX_HdwCanMessage* messages, unsigned maxCount, unsigned& readCount);

    CMessageBuffer Messages;
    uint32_t BufferSize = 10000;
    uint8_t RxFlag = 0; // owned by the unit driver
    uint64_t m_Dropped = 0;
};
