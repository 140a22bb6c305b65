#pragma once
// IPv4 address held in host order (192.168.1.20 is 0xC0A80114).

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_IpAddress : public CKVX_Object {
public:
    CKVX_IpAddress() = default;
    explicit CKVX_IpAddress(uint32_t hostOrder) : m_Address(hostOrder) {}
    CKVX_IpAddress(uint8_t a, uint8_t b, uint8_t c, uint8_t d);
    CKVX_IpAddress(const CKVX_IpAddress&) = default;
    CKVX_IpAddress& operator=(const CKVX_IpAddress&) = default;
    ~CKVX_IpAddress() override;

    // Parses dotted decimal ("127.0.0.1"); false, leaving the address as it was, otherwise.
    bool FromString(const CKVX_String& text);
    // Dotted decimal.
    CKVX_String ToString() const;

    uint32_t GetHostOrder() const { return m_Address; }
    void SetHostOrder(uint32_t v) { m_Address = v; }
    bool IsBroadcast() const { return m_Address == 0xFFFFFFFFu; }
    bool IsLoopback() const { return (m_Address >> 24) == 127; }
    bool IsAny() const { return m_Address == 0; }

    bool operator==(const CKVX_IpAddress& o) const { return m_Address == o.m_Address; }
    bool operator!=(const CKVX_IpAddress& o) const { return m_Address != o.m_Address; }

private:
    uint32_t m_Address = 0;
};
