#pragma once
// Discrete banks in the tool: the values "send" takes for an output bank
// and how a bank's change is shown.
//
//   set=MASK  clear=MASK  toggle=MASK  write=STATE  pulse=MASK/MICROSECONDS
//
// MASK and STATE are numbers (0x.. hex, 0b.. binary, decimal), bit n = line n.

#include "Format.h"

#include <cstdint>
#include <string>

namespace hdwtool {

enum class DiscreteOp : uint8_t { Set, Clear, Toggle, Write, Pulse };

struct DiscreteValue {
    DiscreteOp Op = DiscreteOp::Set;
    uint32_t Bits = 0; // mask, or the state of write
    uint32_t LengthUs = 0; // pulse only
};

bool ParseDiscrete(const std::string& text, DiscreteValue& value, std::string& error);
// "set=0x05".
std::string DiscreteText(const DiscreteValue& value);

const Columns& DiscreteColumns();
// A bank's change: its state and the lines that changed, as hex and as a
// line picture ("1.......": line 7 first).
Fields DiscreteFields(uint64_t timeUs, const std::string& port, uint32_t state, uint32_t changed);

} // namespace hdwtool
