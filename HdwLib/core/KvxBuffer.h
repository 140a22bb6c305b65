#pragma once
// Byte buffer with stream operators. Values are stored little-endian whatever
// the host; reading past the end sets the fail flag and yields zeros.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>

#include <cstdint>
#include <vector>

class HDWLIB_EXPORT CKVX_Buffer : public CKVX_Object {
public:
    CKVX_Buffer() = default;
    CKVX_Buffer(const void* data, unsigned length);
    CKVX_Buffer(const CKVX_Buffer&) = default;
    CKVX_Buffer(CKVX_Buffer&&) noexcept = default;
    CKVX_Buffer& operator=(const CKVX_Buffer&) = default;
    CKVX_Buffer& operator=(CKVX_Buffer&&) noexcept = default;
    ~CKVX_Buffer() override;

    CKVX_Buffer& operator<<(uint8_t v);
    CKVX_Buffer& operator<<(int8_t v) { return *this << static_cast<uint8_t>(v); }
    CKVX_Buffer& operator<<(uint16_t v);
    CKVX_Buffer& operator<<(int16_t v) { return *this << static_cast<uint16_t>(v); }
    CKVX_Buffer& operator<<(uint32_t v);
    CKVX_Buffer& operator<<(int32_t v) { return *this << static_cast<uint32_t>(v); }
    CKVX_Buffer& operator<<(uint64_t v);
    CKVX_Buffer& operator<<(int64_t v) { return *this << static_cast<uint64_t>(v); }
    CKVX_Buffer& operator<<(bool v) { return *this << static_cast<uint8_t>(v ? 1 : 0); }
    // A string goes as a u32 length followed by its characters.
    CKVX_Buffer& operator<<(const CKVX_String& v);

    CKVX_Buffer& operator>>(uint8_t& v);
    CKVX_Buffer& operator>>(int8_t& v);
    CKVX_Buffer& operator>>(uint16_t& v);
    CKVX_Buffer& operator>>(int16_t& v);
    CKVX_Buffer& operator>>(uint32_t& v);
    CKVX_Buffer& operator>>(int32_t& v);
    CKVX_Buffer& operator>>(uint64_t& v);
    CKVX_Buffer& operator>>(int64_t& v);
    CKVX_Buffer& operator>>(bool& v);
    CKVX_Buffer& operator>>(CKVX_String& v);

    void Write(const void* data, unsigned length);
    // Copies `length` bytes from the read position; false (nothing read) when fewer remain.
    bool Read(void* data, unsigned length);

    const uint8_t* GetData() const { return m_Bytes.data(); }
    unsigned GetLength() const { return static_cast<unsigned>(m_Bytes.size()); }
    unsigned GetReadPos() const { return m_ReadPos; }
    unsigned GetRemaining() const { return GetLength() - m_ReadPos; }
    void SetReadPos(unsigned pos);
    bool Fail() const { return m_Fail; }
    void ClearFail() { m_Fail = false; }
    void Clear();

private:
    template <typename U>
    void PutLe(U v);
    template <typename U>
    void GetLe(U& v);

    std::vector<uint8_t> m_Bytes;
    unsigned m_ReadPos = 0;
    bool m_Fail = false;
};
