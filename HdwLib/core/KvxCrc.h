#pragma once
// Table-driven 16-bit CRC chosen by a standard-CRC selector. Selector 0x1008
// (and the default constructor) is CRC-16/IBM-3740: polynomial 0x1021,
// initial value 0xFFFF, no reflection, no final XOR; check value 0x29B1 over
// "123456789". Stored port-identifier keys and HOE packets carry it, so it
// never changes.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxVector.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_Crc : public CKVX_Object {
public:
    enum t_StdCrc : unsigned {
        CRC16_IBM3740 = 0x1008,
        CRC16_CCITT_FALSE = 0x1008,
    };

    CKVX_Crc();
    explicit CKVX_Crc(t_StdCrc selector);
    CKVX_Crc(const CKVX_Crc&) = default;
    CKVX_Crc& operator=(const CKVX_Crc&) = default;
    ~CKVX_Crc() override;

    t_StdCrc GetSelector() const { return m_Selector; }
    // False when the selector is not one this build knows (it then computes 0x1008).
    bool IsKnownSelector() const { return m_Known; }

    // CRC of `length` bytes at `data`, stored in `crc`.
    void Compute(const void* data, unsigned length, unsigned short& crc) const;
    void Compute(const CKVX_Uint8Vector& bytes, unsigned short& crc) const;
    // Continues a CRC over further bytes: start with `GetInitialValue()`.
    unsigned short Update(unsigned short crc, const void* data, unsigned length) const;
    unsigned short GetInitialValue() const { return m_Init; }

private:
    t_StdCrc m_Selector;
    bool m_Known = true;
    unsigned short m_Init = 0xFFFF;
    const uint16_t* m_Table = nullptr;
};
