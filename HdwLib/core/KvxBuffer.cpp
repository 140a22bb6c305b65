#include <HdwLib/core/KvxBuffer.h>

#include <cstring>

CKVX_Buffer::CKVX_Buffer(const void* data, unsigned length)
{
    Write(data, length);
}

CKVX_Buffer::~CKVX_Buffer() = default;

template <typename U>
void CKVX_Buffer::PutLe(U v)
{
    for (unsigned i = 0; i < sizeof(U); ++i)
        m_Bytes.push_back(static_cast<uint8_t>(static_cast<uint64_t>(v) >> (8 * i)));
}

template <typename U>
void CKVX_Buffer::GetLe(U& v)
{
    if (GetRemaining() < sizeof(U)) {
        m_Fail = true;
        m_ReadPos = GetLength();
        v = 0;
        return;
    }
    uint64_t r = 0;
    for (unsigned i = 0; i < sizeof(U); ++i)
        r |= static_cast<uint64_t>(m_Bytes[m_ReadPos + i]) << (8 * i);
    m_ReadPos += sizeof(U);
    v = static_cast<U>(r);
}

CKVX_Buffer& CKVX_Buffer::operator<<(uint8_t v)
{
    PutLe(v);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator<<(uint16_t v)
{
    PutLe(v);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator<<(uint32_t v)
{
    PutLe(v);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator<<(uint64_t v)
{
    PutLe(v);
    return *this;
}

CKVX_Buffer& CKVX_Buffer::operator<<(const CKVX_String& v)
{
    PutLe(static_cast<uint32_t>(v.GetLength()));
    Write(v.c_str(), v.GetLength());
    return *this;
}

CKVX_Buffer& CKVX_Buffer::operator>>(uint8_t& v)
{
    GetLe(v);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(uint16_t& v)
{
    GetLe(v);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(uint32_t& v)
{
    GetLe(v);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(uint64_t& v)
{
    GetLe(v);
    return *this;
}

CKVX_Buffer& CKVX_Buffer::operator>>(int8_t& v)
{
    uint8_t u = 0;
    GetLe(u);
    v = static_cast<int8_t>(u);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(int16_t& v)
{
    uint16_t u = 0;
    GetLe(u);
    v = static_cast<int16_t>(u);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(int32_t& v)
{
    uint32_t u = 0;
    GetLe(u);
    v = static_cast<int32_t>(u);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(int64_t& v)
{
    uint64_t u = 0;
    GetLe(u);
    v = static_cast<int64_t>(u);
    return *this;
}
CKVX_Buffer& CKVX_Buffer::operator>>(bool& v)
{
    uint8_t u = 0;
    GetLe(u);
    v = u != 0;
    return *this;
}

CKVX_Buffer& CKVX_Buffer::operator>>(CKVX_String& v)
{
    uint32_t length = 0;
    GetLe(length);
    if (m_Fail)
        return *this;
    if (GetRemaining() < length) {
        m_Fail = true;
        m_ReadPos = GetLength();
        return *this;
    }
    v = CKVX_String(reinterpret_cast<const char*>(m_Bytes.data() + m_ReadPos), length);
    m_ReadPos += length;
    return *this;
}

void CKVX_Buffer::Write(const void* data, unsigned length)
{
    if (!data || length == 0)
        return;
    const auto* p = static_cast<const uint8_t*>(data);
    m_Bytes.insert(m_Bytes.end(), p, p + length);
}

bool CKVX_Buffer::Read(void* data, unsigned length)
{
    if (GetRemaining() < length) {
        m_Fail = true;
        return false;
    }
    if (length)
        std::memcpy(data, m_Bytes.data() + m_ReadPos, length);
    m_ReadPos += length;
    return true;
}

void CKVX_Buffer::SetReadPos(unsigned pos)
{
    m_ReadPos = pos > GetLength() ? GetLength() : pos;
}

void CKVX_Buffer::Clear()
{
    m_Bytes.clear();
    m_ReadPos = 0;
    m_Fail = false;
}
