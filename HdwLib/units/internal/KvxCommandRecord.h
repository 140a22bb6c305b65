#pragma once
// What the command builders share: little-endian fields of a record and the
// check whether the unit takes a command on a channel.

#include <HdwLib/units/KvxCommandUnit.h>

#include <cstdint>

namespace kvx_commands {

inline void PutLe16(uint8_t* p, uint32_t v)
{
    p[0] = uint8_t(v & 0xFF);
    p[1] = uint8_t((v >> 8) & 0xFF);
}

inline void PutLe32(uint8_t* p, uint32_t v)
{
    PutLe16(p, v);
    PutLe16(p + 2, v >> 16);
}

} // namespace kvx_commands

// The instance when the unit takes that command on that channel, else null
// (the builders then answer 2).
inline CKVX_HdwKvxUnitInstance* KvxCommandTarget(
    CKVX_HdwKvxCommandUnit* device, unsigned instance, uint32_t kind, unsigned channel, unsigned channels)
{
    if (!(device->GetUnitProfile().Commands & kind) || channel >= channels)
        return nullptr;
    return device->GetUnitInstance(instance);
}
