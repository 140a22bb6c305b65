#pragma once
// An I2C or SPI master as send and monitor use it: its settings from the
// command line, its master service, and one line per transfer:
//
//   TIME PORT TARGET WRITE READ RESULT
//   TARGET  I2C address (0x50; ten-bit 0x250) or SPI chip select (cs=1, cs=port)
//   WRITE   bytes written (SPI: shifted out), READ bytes read (SPI: shifted
//           in); dotted hex, "-" for none
//   RESULT  ok | nack address | nack data | bus-fault held |
//           bus-fault arbitration | time-out | refused | failed CODE

#include "Cli.h"
#include "Format.h"
#include "Ports.h"
#include "Session.h"

#include <HdwLib/HdwLib.h>

#include <string>

namespace hdwtool {

struct PortOptions;

// One transfer of either kind; `Spi` says which member is meant.
struct MasterTransfer {
    bool Spi = false;
    CKVX_HdwI2cTransfer I2c;
    CKVX_HdwSpiTransfer SpiT;
};

// A value for a master port of `portType`; false with a reason.
bool ParseMasterValue(unsigned portType, const std::string& text, MasterTransfer& t, std::string& error);
const Columns& MasterColumns();
// The line of a finished transfer that Run answered `rc` for.
Fields MasterFields(uint64_t timeUs, const std::string& port, const MasterTransfer& t, unsigned rc);

class MasterPort {
public:
    ~MasterPort(); // closes the port
    // Checks --speed, --mode, --clock, --word-bits; false with a reason.
    bool ParseSettings(const ParsedArgs& parsed, const PortOptions& options, std::string& error);
    // Resolves `target`, enables its master service and opens it.
    bool Open(Session& session, const PortSpec& target, std::string& error);
    const std::string& Name() const { return m_Name; }
    // Runs `t` and waits for it (up to 10 s); its result code.
    unsigned Run(MasterTransfer& t);

private:
    CKVX_HdwI2cPort::CParameters m_I2c;
    CKVX_HdwSpiPort::CParameters m_Spi;
    CKVX_HdwPort* m_Port = nullptr;
    CKVX_HdwService* m_Service = nullptr;
    std::string m_Name;
};

} // namespace hdwtool
