#include <HdwLib/core/KvxString.h>

#include <cstdio>
#include <vector>

CKVX_String::CKVX_String(const char* text) : m_Text(text ? text : "") {}
CKVX_String::CKVX_String(const char* text, unsigned length) : m_Text(text ? std::string(text, length) : std::string())
{}
CKVX_String::CKVX_String(const std::string& text) : m_Text(text) {}
CKVX_String::CKVX_String(std::string&& text) noexcept : m_Text(std::move(text)) {}
CKVX_String::~CKVX_String() = default;

CKVX_String& CKVX_String::operator=(const char* text)
{
    m_Text = text ? text : "";
    return *this;
}

unsigned CKVX_String::FormatV(const char* format, va_list args)
{
    m_Text.clear();
    if (!format)
        return 0;
    char small[256];
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (needed < 0)
        return 0;
    if (static_cast<size_t>(needed) < sizeof small) {
        m_Text.assign(small, static_cast<size_t>(needed));
    } else {
        std::vector<char> big(static_cast<size_t>(needed) + 1);
        std::vsnprintf(big.data(), big.size(), format, args);
        m_Text.assign(big.data(), static_cast<size_t>(needed));
    }
    return GetLength();
}

unsigned CKVX_String::Format(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const unsigned n = FormatV(format, args);
    va_end(args);
    return n;
}

unsigned CKVX_String::AppendFormat(const char* format, ...)
{
    CKVX_String tail;
    va_list args;
    va_start(args, format);
    tail.FormatV(format, args);
    va_end(args);
    m_Text += tail.m_Text;
    return GetLength();
}

CKVX_String& CKVX_String::operator+=(const CKVX_String& other)
{
    m_Text += other.m_Text;
    return *this;
}

CKVX_String& CKVX_String::operator+=(const char* text)
{
    if (text)
        m_Text += text;
    return *this;
}

CKVX_String& CKVX_String::operator+=(char c)
{
    m_Text += c;
    return *this;
}

CKVX_String operator+(const CKVX_String& a, const CKVX_String& b)
{
    return CKVX_String(a.str() + b.str());
}

CKVX_String CKVX_String::Left(unsigned count) const
{
    return CKVX_String(m_Text.substr(0, count));
}

CKVX_String CKVX_String::Right(unsigned count) const
{
    if (count >= m_Text.size())
        return *this;
    return CKVX_String(m_Text.substr(m_Text.size() - count));
}

CKVX_String CKVX_String::Mid(unsigned start, unsigned count) const
{
    if (start >= m_Text.size())
        return CKVX_String();
    return CKVX_String(m_Text.substr(start, count));
}

int CKVX_String::FindFromBegin(const CKVX_String& what, unsigned start) const
{
    const size_t pos = m_Text.find(what.m_Text, start);
    return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

int CKVX_String::FindFromBegin(char c, unsigned start) const
{
    const size_t pos = m_Text.find(c, start);
    return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

int CKVX_String::FindFromEnd(const CKVX_String& what) const
{
    const size_t pos = m_Text.rfind(what.m_Text);
    return pos == std::string::npos ? -1 : static_cast<int>(pos);
}

void CKVX_String::ResizeRight(unsigned length, char fill)
{
    m_Text.resize(length, fill);
}

namespace {
int DigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z')
        return c - 'A' + 10;
    return 99;
}
} // namespace

bool CKVX_String::ToUint64(unsigned long long& value, unsigned radix) const
{
    if (radix < 2 || radix > 36 || m_Text.empty())
        return false;
    unsigned long long result = 0;
    for (char c : m_Text) {
        const int d = DigitValue(c);
        if (d >= static_cast<int>(radix))
            return false;
        if (result > (~0ull - static_cast<unsigned>(d)) / radix)
            return false;
        result = result * radix + static_cast<unsigned>(d);
    }
    value = result;
    return true;
}

bool CKVX_String::ToUnsigned(unsigned& value, unsigned radix) const
{
    unsigned long long wide = 0;
    if (!ToUint64(wide, radix) || wide > 0xFFFFFFFFull)
        return false;
    value = static_cast<unsigned>(wide);
    return true;
}

unsigned CKVX_String::ToUnsignedOr(unsigned fallback, unsigned radix) const
{
    unsigned v = fallback;
    return ToUnsigned(v, radix) ? v : fallback;
}
