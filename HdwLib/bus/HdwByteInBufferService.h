#pragma once
// Generic byte-stream receive service (service type 2), the base of every
// byte-oriented input (UART channels, byte streams carried in bus words).
// It keeps the capacity; Read, GetReadBufferBytes and ResetReadBuffer answer
// 8 and are overridden by the unit driver, which keeps the bytes.
// Lock rule: BufferSize is touched only under the device lock.

#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwByteInBufferService : public CKVX_HdwService {
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

    explicit CKVX_HdwByteInBufferService(CKVX_HdwObject* port);
    ~CKVX_HdwByteInBufferService() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    virtual unsigned Read(unsigned char* bytes, unsigned int maxCount, unsigned int& readCount);
    virtual unsigned GetReadBufferBytes(unsigned int& count);
    virtual unsigned ResetReadBuffer();

    // Takes the device lock around the read.
    unsigned GetBufferSize();
    // Bytes lost because the buffer was full (oldest dropped first), since
    // Start; read under the device lock.
    uint64_t GetDroppedCount();

protected:
    uint32_t BufferSize = 10000;
    // Kept by the driver's receive path, under the device lock.
    uint64_t m_Dropped = 0;
};
