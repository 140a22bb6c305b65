#include <HdwLib/core/KvxCrc.h>

#include <HdwLib/core/internal/Crc16Tables.h>

CKVX_Crc::CKVX_Crc() : CKVX_Crc(CRC16_IBM3740) {}

CKVX_Crc::CKVX_Crc(t_StdCrc selector) : m_Selector(selector), m_Table(hdw::crc::kTable1021)
{
    m_Known = selector == CRC16_IBM3740;
}

CKVX_Crc::~CKVX_Crc() = default;

unsigned short CKVX_Crc::Update(unsigned short crc, const void* data, unsigned length) const
{
    const auto* p = static_cast<const uint8_t*>(data);
    uint16_t c = crc;
    for (unsigned i = 0; i < length; ++i)
        c = static_cast<uint16_t>((c << 8) ^ m_Table[((c >> 8) ^ p[i]) & 0xFF]);
    return c;
}

void CKVX_Crc::Compute(const void* data, unsigned length, unsigned short& crc) const
{
    crc = Update(m_Init, data, length);
}

void CKVX_Crc::Compute(const CKVX_Uint8Vector& bytes, unsigned short& crc) const
{
    Compute(bytes.GetData(), bytes.GetLength(), crc);
}
