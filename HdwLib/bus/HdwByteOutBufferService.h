#pragma once
// Generic byte-stream transmit service (service type 3), the base of every
// byte-oriented output. It keeps the capacity (0 until parameters are set);
// Write, GetBytesToBeWritten and ResetWriteBuffer answer 8 and are
// overridden by the unit driver.
// Lock rule: BufferSize is touched only under the device lock, except by
// GetBufferSize, which the driver calls while it holds the lock.

#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwByteOutBufferService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        uint32_t BufferSize = 1000; // capacity in bytes
    };

    explicit CKVX_HdwByteOutBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwByteOutBufferService() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    virtual unsigned Write(unsigned char* bytes, unsigned int count, unsigned int option);
    virtual unsigned GetBytesToBeWritten(unsigned int& count);
    virtual unsigned ResetWriteBuffer();

    // Reads BufferSize without the lock.
    unsigned GetBufferSize() const { return BufferSize; }
    // Bytes a Write could not place because they did not fit the buffer
    // (the Write answered 2 and kept none), and bytes that
    // the link refused after they were accepted, since Start; read under
    // the device lock.
    uint64_t GetUnplacedCount();

protected:
    uint32_t BufferSize = 0;
    // Kept by the driver under the device lock; its Start sets it to 0.
    uint64_t m_Unplaced = 0;
};
