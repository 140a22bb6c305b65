#pragma once
// An explicit link given to enumeration (CKVX_HdwManager::CInitPortDesc):
// which attached driver it belongs to and where the unit is.

#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwInitPortDesc : public CKVX_Object {
public:
    CKVX_HdwInitPortDesc() = default;
    CKVX_HdwInitPortDesc(uint64_t deviceCode, const CKVX_String& link) : DeviceCode(deviceCode), Link(link) {}
    CKVX_HdwInitPortDesc(const CKVX_HdwInitPortDesc&) = default;
    CKVX_HdwInitPortDesc(CKVX_HdwInitPortDesc&&) = default;
    CKVX_HdwInitPortDesc& operator=(const CKVX_HdwInitPortDesc&) = default;
    CKVX_HdwInitPortDesc& operator=(CKVX_HdwInitPortDesc&&) = default;
    ~CKVX_HdwInitPortDesc() override;

    // Device code of the attached driver the link belongs to.
    uint64_t DeviceCode = 0;
    // "/dev/ttyUSB0", "/dev/pts/7", "COM5", or "udp:HOST:PORT".
    CKVX_String Link;
    // Filled by Enumerate: 0 when a unit answered on the link, 14 when none
    // did, 2 when no attached driver has that device code or the link text is
    // malformed, ResultNotTried when the driver never looked at it.
    unsigned Result = ResultNotTried;

    static constexpr unsigned ResultNotTried = 0xFFFFFFFFu;
};
