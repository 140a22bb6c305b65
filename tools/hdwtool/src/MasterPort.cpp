#include "MasterPort.h"

#include "Channel.h"
#include "MasterSend.h"
#include "Values.h"

#include <cstdio>

namespace hdwtool {

namespace {

constexpr unsigned kWaitMs = 10000;

std::string Dotted(const CKVX_Uint8Vector& bytes)
{
    std::string text;
    char b[4];
    for (uint8_t v : bytes.Items()) {
        std::snprintf(b, sizeof b, "%s%02X", text.empty() ? "" : ".", v);
        text += b;
    }
    return text.empty() ? "-" : text;
}

std::string ResultWords(unsigned rc, const CKVX_HdwI2cTransfer* i2c)
{
    switch (rc) {
    case 0: return "ok";
    case HDW_ERR_NO_ACK: return i2c && i2c->NackOnAddress ? "nack address" : "nack data";
    case HDW_ERR_BUS_FAULT:
        return i2c && i2c->Fault == CKVX_HdwI2cTransfer::FaultArbitration ? "bus-fault arbitration" : "bus-fault held";
    case HDW_ERR_PROBE_INCOMPLETE: return "time-out";
    case HDW_ERR_ARGUMENT: return "refused";
    default: return "failed " + std::to_string(rc);
    }
}

bool SettingNumber(const ParsedArgs& parsed, const char* name, uint64_t max, uint8_t& out, std::string& error)
{
    if (!parsed.Has(name))
        return true;
    uint64_t n = 0;
    if (!ParseNumber(parsed.Get(name), n) || n > max) {
        error = std::string("--") + name + " " + parsed.Get(name) + " is not a number from 0 to " + std::to_string(max);
        return false;
    }
    out = uint8_t(n);
    return true;
}

} // namespace

bool ParseMasterValue(unsigned portType, const std::string& text, MasterTransfer& t, std::string& error)
{
    t.Spi = portType == HDW_PORT_SPI;
    return t.Spi ? ParseSpiValue(text, t.SpiT, error) : ParseI2cValue(text, t.I2c, error);
}

const Columns& MasterColumns()
{
    static const Columns c{{"TIME", "PORT", "TARGET", "WRITE", "READ", "RESULT"}, {-12, 10, 7, 23, 23, 0}};
    return c;
}

Fields MasterFields(uint64_t timeUs, const std::string& port, const MasterTransfer& t, unsigned rc)
{
    char target[16];
    if (t.Spi) {
        if (t.SpiT.ChipSelect == CKVX_HdwSpiTransfer::PortChipSelect)
            std::snprintf(target, sizeof target, "cs=port");
        else
            std::snprintf(target, sizeof target, "cs=%u", unsigned(t.SpiT.ChipSelect));
        return {FormatTime(timeUs), port, target, Dotted(t.SpiT.Out), Dotted(t.SpiT.In), ResultWords(rc, nullptr)};
    }
    std::snprintf(target, sizeof target, t.I2c.TenBit ? "0x%03X" : "0x%02X", unsigned(t.I2c.Address));
    return {FormatTime(timeUs), port, target, Dotted(t.I2c.Write), Dotted(t.I2c.Read), ResultWords(rc, &t.I2c)};
}

MasterPort::~MasterPort()
{
    if (m_Port)
        m_Port->Close();
}

bool MasterPort::ParseSettings(const ParsedArgs& parsed, const PortOptions& options, std::string& error)
{
    if (parsed.Has("speed") && !ParseBitRate(parsed.Get("speed"), m_I2c.BusSpeed, error)) {
        error = "--speed: " + error;
        return false;
    }
    if (parsed.Has("clock") && !ParseBitRate(parsed.Get("clock"), m_Spi.ClockHz, error)) {
        error = "--clock: " + error;
        return false;
    }
    if (!SettingNumber(parsed, "mode", 3, m_Spi.Mode, error) ||
        !SettingNumber(parsed, "word-bits", 16, m_Spi.WordBits, error))
        return false;
    if (options.OpenTimeoutMs)
        m_I2c.Timeout = m_Spi.Timeout = *options.OpenTimeoutMs;
    return true;
}

bool MasterPort::Open(Session& session, const PortSpec& target, std::string& error)
{
    CKVX_HdwPort* port = session.Resolve(target, m_Name, error);
    if (!port)
        return false;
    const bool spi = port->GetPortType() == HDW_PORT_SPI;
    if (const unsigned rc =
            port->EnableService(spi ? HDW_SERVICE_SPI_MASTER : HDW_SERVICE_I2C_MASTER, &m_Service, nullptr)) {
        error = m_Name + ": the master service was refused (" + ResultText(rc) + ")";
        return false;
    }
    CKVX_HdwPort::CParameters* params =
        spi ? static_cast<CKVX_HdwPort::CParameters*>(&m_Spi) : static_cast<CKVX_HdwPort::CParameters*>(&m_I2c);
    if (const unsigned rc = port->Open(params)) {
        error = m_Name + ": open failed (" + ResultText(rc) + ")";
        return false;
    }
    m_Port = port;
    return true;
}

unsigned MasterPort::Run(MasterTransfer& t)
{
    if (t.Spi) {
        t.SpiT.In = CKVX_Uint8Vector();
        return static_cast<CKVX_HdwSpiMasterService*>(m_Service)->Transfer(t.SpiT, kWaitMs);
    }
    t.I2c.ClearResults();
    return static_cast<CKVX_HdwI2cMasterService*>(m_Service)->Transfer(t.I2c, kWaitMs);
}

} // namespace hdwtool
