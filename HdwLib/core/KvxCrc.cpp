#include <HdwLib/core/KvxCrc.h>

#include <array>

namespace {

constexpr std::array<uint16_t, 256> MakeMsbFirstTable(uint16_t poly)
{
    std::array<uint16_t, 256> t{};
    for (unsigned i = 0; i < 256; ++i) {
        uint16_t crc = static_cast<uint16_t>(i << 8);
        for (int b = 0; b < 8; ++b)
            crc = static_cast<uint16_t>((crc & 0x8000) ? (crc << 1) ^ poly : (crc << 1));
        t[i] = crc;
    }
    return t;
}

constexpr std::array<uint16_t, 256> kTable1021 = MakeMsbFirstTable(0x1021);

} // namespace

CKVX_Crc::CKVX_Crc() : CKVX_Crc(CRC16_IBM3740) {}

CKVX_Crc::CKVX_Crc(t_StdCrc selector) : m_Selector(selector), m_Table(kTable1021.data())
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
