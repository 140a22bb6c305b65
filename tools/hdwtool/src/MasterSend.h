#pragma once
// send and monitor on the I2C and SPI masters (MasterSend.cpp,
// MasterMonitor.cpp): transfers instead of words, frames or bytes.

#include "Channel.h"
#include "Cli.h"
#include "Format.h"
#include "Ports.h"
#include "TimeColumn.h"

#include <cstdint>
#include <string>
#include <vector>

namespace hdwtool {

bool IsMasterPort(unsigned portType);
// One transfer of the command line; false with a reason.
bool ParseI2cValue(const std::string& text, CKVX_HdwI2cTransfer& t, std::string& error);
bool ParseSpiValue(const std::string& text, CKVX_HdwSpiTransfer& t, std::string& error);
// Runs the transfers of the positionals after the port, in order; the exit code.
int RunMasterSend(const ParsedArgs& parsed, const PortSpec& target, const PortOptions& options);
// monitor on one master port: runs its --poll transfers; the exit code.
int RunMasterMonitor(const ParsedArgs& parsed, const std::vector<PortSpec>& watch, const PortOptions& options,
    uint64_t count, double duration, OutputFormat format, TimeMode timeMode);

} // namespace hdwtool
