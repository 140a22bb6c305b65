#include <HdwLib/core/KvxException.h>

CKVX_Exception::CKVX_Exception(unsigned code, const CKVX_Object* object, uint64_t extra)
    : m_Code(code),
      m_Object(object),
      m_Extra(extra)
{}

CKVX_Exception::~CKVX_Exception() = default;

const char* CKVX_Exception::what() const noexcept
{
    return m_Code == 32 ? "HdwLib: a unit mutex could not be created" : "HdwLib: out of resources";
}
