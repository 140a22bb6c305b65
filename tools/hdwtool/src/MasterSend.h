#pragma once
// send on the I2C and SPI masters (MasterSend.cpp): transfers instead of
// words, frames or bytes.

#include "Channel.h"
#include "Cli.h"
#include "Ports.h"

#include <string>

namespace hdwtool {

bool IsMasterPort(unsigned portType);
// One transfer of the command line; false with a reason.
bool ParseI2cValue(const std::string& text, CKVX_HdwI2cTransfer& t, std::string& error);
bool ParseSpiValue(const std::string& text, CKVX_HdwSpiTransfer& t, std::string& error);
// Runs the transfers of the positionals after the port, in order; the exit code.
int RunMasterSend(const ParsedArgs& parsed, const PortSpec& target, const PortOptions& options);

} // namespace hdwtool
