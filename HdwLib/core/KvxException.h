#pragma once
// Thrown only when a resource cannot be had (code 32: a unit's mutex could not
// be created). Operations report every other failure by result code.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>
#include <exception>

class HDWLIB_EXPORT CKVX_Exception : public CKVX_Object, public std::exception {
public:
    CKVX_Exception(unsigned code, const CKVX_Object* object, uint64_t extra);
    CKVX_Exception(const CKVX_Exception&) = default;
    CKVX_Exception& operator=(const CKVX_Exception&) = default;
    ~CKVX_Exception() override;

    unsigned GetCode() const { return m_Code; }
    const CKVX_Object* GetObject() const { return m_Object; }
    uint64_t GetExtra() const { return m_Extra; }
    const char* what() const noexcept override;

private:
    unsigned m_Code;
    const CKVX_Object* m_Object;
    uint64_t m_Extra;
};
