#pragma once
// 8-bit text. A thin value type over std::string with the operations the
// library's classes use (printf-style formatting, slicing, search, numeric
// conversion).

#include <HdwLib/core/KvxObject.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <string_view>

// Argument checking for the printf-style members. mingw-w64 formats with its
// C99 printf (%zu, %llu) and names that archetype __MINGW_PRINTF_FORMAT; plain
// `printf` there would check against msvcrt's and warn on valid formats.
#if defined(__MINGW_PRINTF_FORMAT)
#define HDWLIB_PRINTF_FORMAT(fmt, args) __attribute__((format(__MINGW_PRINTF_FORMAT, fmt, args)))
#elif defined(__GNUC__)
#define HDWLIB_PRINTF_FORMAT(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define HDWLIB_PRINTF_FORMAT(fmt, args)
#endif

class HDWLIB_EXPORT CKVX_String : public CKVX_Object {
public:
    CKVX_String() = default;
    CKVX_String(const char* text); // null gives ""
    CKVX_String(const char* text, unsigned length);
    CKVX_String(const std::string& text);
    CKVX_String(std::string&& text) noexcept;
    CKVX_String(const CKVX_String&) = default;
    CKVX_String(CKVX_String&&) noexcept = default;
    CKVX_String& operator=(const CKVX_String&) = default;
    CKVX_String& operator=(CKVX_String&&) noexcept = default;
    CKVX_String& operator=(const char* text);
    ~CKVX_String() override;

    // Replaces the contents with printf-style formatted text; returns the new length.
    unsigned Format(const char* format, ...) HDWLIB_PRINTF_FORMAT(2, 3);
    unsigned FormatV(const char* format, va_list args);
    // Appends printf-style formatted text; returns the new length.
    unsigned AppendFormat(const char* format, ...) HDWLIB_PRINTF_FORMAT(2, 3);

    CKVX_String& operator+=(const CKVX_String& other);
    CKVX_String& operator+=(const char* text);
    CKVX_String& operator+=(char c);
    friend HDWLIB_EXPORT CKVX_String operator+(const CKVX_String& a, const CKVX_String& b);

    bool operator==(const CKVX_String& other) const { return m_Text == other.m_Text; }
    bool operator!=(const CKVX_String& other) const { return m_Text != other.m_Text; }
    bool operator==(const char* text) const { return m_Text == (text ? text : ""); }
    bool operator!=(const char* text) const { return !(*this == text); }
    bool operator<(const CKVX_String& other) const { return m_Text < other.m_Text; }

    unsigned GetLength() const { return static_cast<unsigned>(m_Text.size()); }
    bool IsEmpty() const { return m_Text.empty(); }
    // Character at index, or '\0' when the index is past the end.
    char GetChar(unsigned index) const { return index < m_Text.size() ? m_Text[index] : '\0'; }

    // The first `count` characters (all when shorter).
    CKVX_String Left(unsigned count) const;
    // The last `count` characters (all when shorter).
    CKVX_String Right(unsigned count) const;
    // `count` characters from `start` (to the end when count is omitted or too large).
    CKVX_String Mid(unsigned start, unsigned count = ~0u) const;
    // Index of the first occurrence of `what` at or after `start`, or -1.
    int FindFromBegin(const CKVX_String& what, unsigned start = 0) const;
    int FindFromBegin(char c, unsigned start = 0) const;
    // Index of the last occurrence of `what`, or -1.
    int FindFromEnd(const CKVX_String& what) const;
    // Sets the length to `length`, cutting or padding with `fill` at the right end.
    void ResizeRight(unsigned length, char fill = ' ');
    void Empty() { m_Text.clear(); }

    // Converts the whole text to an unsigned number in `radix` (2..36).
    // Returns false, leaving `value` unchanged, for empty text, a character
    // that is not a digit of the radix, or an overflow of 32 bits.
    bool ToUnsigned(unsigned& value, unsigned radix = 10) const;
    // Same for 64 bits.
    bool ToUint64(unsigned long long& value, unsigned radix = 10) const;
    // Convenience form: the value, or `fallback` when the text does not convert.
    unsigned ToUnsignedOr(unsigned fallback, unsigned radix = 10) const;

    const char* c_str() const { return m_Text.c_str(); }
    const std::string& str() const { return m_Text; }
    std::string_view view() const { return m_Text; }

private:
    std::string m_Text;
};
