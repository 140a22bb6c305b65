#include <HdwLib/core/KvxIpAddress.h>

CKVX_IpAddress::CKVX_IpAddress(uint8_t a, uint8_t b, uint8_t c, uint8_t d)
    : m_Address((uint32_t(a) << 24) | (uint32_t(b) << 16) | (uint32_t(c) << 8) | uint32_t(d))
{}

CKVX_IpAddress::~CKVX_IpAddress() = default;

bool CKVX_IpAddress::FromString(const CKVX_String& text)
{
    uint32_t result = 0;
    unsigned parts = 0;
    unsigned value = 0;
    unsigned digits = 0;
    const unsigned n = text.GetLength();
    for (unsigned i = 0; i <= n; ++i) {
        const char c = text.GetChar(i);
        if (c >= '0' && c <= '9') {
            value = value * 10 + unsigned(c - '0');
            if (++digits > 3 || value > 255)
                return false;
        } else if (c == '.' || i == n) {
            if (digits == 0 || parts == 4)
                return false;
            result = (result << 8) | value;
            ++parts;
            value = 0;
            digits = 0;
            if (c == '.' && i + 1 == n)
                return false;
        } else {
            return false;
        }
    }
    if (parts != 4)
        return false;
    m_Address = result;
    return true;
}

CKVX_String CKVX_IpAddress::ToString() const
{
    CKVX_String s;
    s.Format(
        "%u.%u.%u.%u", (m_Address >> 24) & 0xFF, (m_Address >> 16) & 0xFF, (m_Address >> 8) & 0xFF, m_Address & 0xFF);
    return s;
}
