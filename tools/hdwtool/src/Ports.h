#pragma once
// Port names on the command line: "a429rx:0", "a429tx:1", "can:0", "uart:1",
// "din:0", "dout:3"
// (port type and absolute number) or a port-identifier key as "list" prints it.

#include <string>

namespace hdwtool {

struct PortSpec {
    bool ByKey = false;
    unsigned PortType = 0; // t_HdwPortType, when not by key
    unsigned AbsNum = 0;
    std::string Key;
};

// Short name of a port type ("a429rx"), or "type<N>" for one without a name.
std::string PortTypeName(unsigned portType);
// "a429rx:0".
std::string PortName(unsigned portType, unsigned absNum);
// Parses a port name or key. A key is checked for its form and checksum here;
// whether a unit has that port is for the session to say.
bool ParsePortSpec(const std::string& text, PortSpec& target, std::string& error);

} // namespace hdwtool
