#pragma once
// Transmit FIFO of an ARINC 429 transmitter (service type 5): the
// application queues words with Write, the unit driver hands them to the
// unit from its tick. Write, ResetWriteBuffer and GetMessagesToBeWritten
// answer 8 here; the driver overrides them and works on Messages under the
// device lock.
//
// The service starts with BufferSize 10000 while a fresh CParameters holds
// 1000: the two defaults differ on purpose.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429OutBufferService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 1000; // capacity in messages
    };

    explicit CKVX_HdwArinc429OutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwArinc429OutBufferService() override;

    // Empty Messages and set the run state (1 / 0).
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    virtual unsigned Write(CKVX_HdwArinc429Message* messages, unsigned int count, unsigned char option);
    virtual unsigned ResetWriteBuffer();
    virtual unsigned GetMessagesToBeWritten(unsigned int& count);

    // Reads BufferSize without the lock.
    unsigned GetBufferSize() const { return BufferSize; }
    // Words a Write could not place because they did not fit the buffer
    // (the Write answered 2 and kept none of them), since Start; read under
    // the device lock.
    uint64_t GetUnplacedCount();

protected:
    // Lock rule: under the device lock after construction.
    uint32_t BufferSize = 10000;
    CKVX_HdwArinc429MessageList Messages;
    uint64_t m_Unplaced = 0;
};
