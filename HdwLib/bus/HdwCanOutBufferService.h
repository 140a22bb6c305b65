#pragma once
// Transmit FIFO of a CAN channel (service type 8). This class keeps the two
// owning frame buffers, the capacity, the identifier words and the last
// transmit status; Write, ResetWriteBuffer and GetMessagesToBeWritten answer
// 8 and are overridden by the unit driver. TxStatus survives Stop and is
// reset by Start.
// Lock rule: every member only under the device lock.

#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwCanOutBufferService : public CKVX_HdwService {
public:
    // Owns the frames it points to: DeleteAll and the destructor delete them.
    class HDWLIB_EXPORT CMessageBuffer : public CKVX_List<CKVX_HdwCanMessage*> {
    public:
        CMessageBuffer() = default;
        // Copies the frames, not the pointers.
        CMessageBuffer(const CMessageBuffer& other);
        CMessageBuffer(CMessageBuffer&&) = default;
        CMessageBuffer& operator=(const CMessageBuffer& other);
        CMessageBuffer& operator=(CMessageBuffer&& other) noexcept;
        ~CMessageBuffer() override;

        void DeleteAll();
    };

    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 1000; // capacity in frames
        uint16_t IdWordA = 0xFFFF; // identifier words for the unit driver
        uint16_t IdWordB = 0xFFFF;
    };

    explicit CKVX_HdwCanOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwCanOutBufferService() override;

    // Both empty the two buffers and set the run state (1 / 0); Start also
    // resets TxStatus to 0.
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    virtual unsigned GetFaultStatus(CKVX_HdwCanPort::CFaultStatus* status);
    virtual unsigned ResetWriteBuffer();
    virtual unsigned Write(CKVX_HdwCanMessage* messages, unsigned int count, unsigned char option);
    virtual unsigned GetMessagesToBeWritten(unsigned int& count);
    virtual unsigned GetTxStatus(unsigned int& status);

    // Frames a Write could not place because they did not fit the buffer
    // (the Write answered 2 and kept none of them), since Start; read under
    // the device lock.
    uint64_t GetUnplacedCount();

protected:
    CMessageBuffer Messages;
    uint32_t BufferSize = 10000;
    uint32_t TxStatus = 0;
    uint32_t TxWord = 1000; // for the unit driver
    uint16_t IdWordA = 0xFFFF;
    uint16_t IdWordB = 0xFFFF;
    CMessageBuffer MessagesB;
    uint64_t m_Unplaced = 0;
};
