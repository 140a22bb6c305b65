#pragma once
// CAN frames as lines of a candump log:
//   (1700000000.123456) can0 123#DEADBEEF
// wall-clock seconds since 1970 with six decimals, the interface name, and
// the frame in the cansend syntax (3 hex digits standard, 8 extended, "#R"
// and an optional length digit for a remote request). A trailing " R" or
// " T" (received, transmitted) is accepted when reading.

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <string>

namespace hdwtool {

// The interface name of a CAN port: "can:3" -> "can3".
std::string CandumpInterface(const std::string& portName);

std::string FormatCandumpLine(uint64_t wallUs, const std::string& interfaceName, const CKVX_HdwCanMessage& frame);

struct CandumpRecord {
    uint64_t TimeUs = 0; // as written, microseconds since 1970
    std::string Interface;
    CKVX_HdwCanMessage Frame;
    bool ErrorFrame = false; // an error frame (CAN_ERR_FLAG in its id): no frame to send
};

// Parses one line (without its newline). False with a reason for a line
// that is not a candump log line; empty lines are for the caller to skip.
bool ParseCandumpLine(const std::string& line, CandumpRecord& record, std::string& error);

} // namespace hdwtool
