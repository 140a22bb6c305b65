// The names the programs and the Python binding give drivers and port types:
// one table each, so that "halden:..." or "can:3" means the same everywhere.

#pragma once

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <span>
#include <string>

namespace hdwnames {

struct Driver {
    const char* Name;
    uint64_t Code;
    CKVX_HdwDevice* (*Create)();
};

struct PortType {
    unsigned Type;
    const char* Name;
};

// Every driver, in attachment (and so numbering) order: the units' ports come first.
std::span<const Driver> Drivers();
std::span<const PortType> PortTypes();

// By name, or null.
const Driver* DriverNamed(const std::string& name);
const Driver* DriverWithCode(uint64_t code);
// "3 halden, 4 bexley, ..." for messages.
std::string DriverList();

// "can", or "type<N>" for a type without a name.
std::string PortTypeName(unsigned type);
// The type of a name, or 0.
unsigned PortTypeNamed(const std::string& name);
// "uart, a429tx, ..." for messages.
std::string PortTypeList();

} // namespace hdwnames
