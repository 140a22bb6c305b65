// hdwtool send on an I2C or SPI master: each value is one transfer, run in
// the order given and waited for; one line per transfer with its result.
//
//   i2c: addr=ADDR[,write=BYTES][,read=N][,tenbit=1]
//   spi: out=BYTES[,cs=N][,keep=1]
//
// BYTES as for UART ("hex:20.01.02" or text). --speed sets the I2C bus
// speed, --mode, --clock and --word-bits the SPI master.
#include "Commands.h"
#include "MasterSend.h"

#include <cstdio>

namespace hdwtool {

namespace {

constexpr unsigned kWaitMs = 10000;

std::string Hex(const CKVX_Uint8Vector& bytes)
{
    std::string text;
    char b[4];
    for (uint8_t v : bytes.Items()) {
        std::snprintf(b, sizeof b, "%s%02X", text.empty() ? "" : ".", v);
        text += b;
    }
    return text.empty() ? "-" : text;
}

const char* ResultText(unsigned result, bool nackOnAddress, unsigned fault)
{
    switch (result) {
    case 0: return "ok";
    case HDW_ERR_NO_ACK: return nackOnAddress ? "no acknowledge (address)" : "no acknowledge (data)";
    case HDW_ERR_BUS_FAULT: return fault == 2 ? "bus fault (arbitration lost)" : "bus fault (bus held)";
    case HDW_ERR_ARGUMENT: return "refused";
    case HDW_ERR_PROBE_INCOMPLETE: return "no result in time";
    default: return "failed";
    }
}

// One field of a value: a number, or (for `write`/`out`) bytes.
bool FieldNumber(const std::string& key, const std::string& text, uint64_t max, uint64_t& value, std::string& error)
{
    if (!ParseNumber(text, value) || value > max) {
        error = key + "=" + text + " is not a number from 0 to " + std::to_string(max);
        return false;
    }
    return true;
}

} // namespace

bool IsMasterPort(unsigned portType)
{
    return portType == HDW_PORT_I2C || portType == HDW_PORT_SPI;
}

bool ParseI2cValue(const std::string& text, CKVX_HdwI2cTransfer& t, std::string& error)
{
    std::vector<std::pair<std::string, std::string>> fields;
    if (!SplitFields(text, fields, error))
        return false;
    bool haveAddress = false;
    for (const auto& [key, value] : fields) {
        uint64_t n = 0;
        std::vector<uint8_t> bytes;
        if (key == "addr" && FieldNumber(key, value, 0x3FF, n, error)) {
            t.Address = uint16_t(n);
            haveAddress = true;
        } else if (key == "read" && FieldNumber(key, value, CKVX_HdwI2cTransfer::MaxBytes, n, error)) {
            t.ReadLength = uint32_t(n);
        } else if (key == "tenbit" && FieldNumber(key, value, 1, n, error)) {
            t.TenBit = n == 1;
        } else if (key == "write" && ParseUartBytes(value, bytes, error)) {
            t.Write = CKVX_Uint8Vector(bytes.data(), unsigned(bytes.size()));
        } else {
            if (error.empty())
                error = "unknown I2C field \"" + key + "\" (addr, write, read, tenbit)";
            return false;
        }
    }
    if (!haveAddress)
        error = "an I2C transfer needs addr=";
    else if (t.Check() != 0)
        error = "address or length out of range in \"" + text + "\"";
    return error.empty();
}

bool ParseSpiValue(const std::string& text, CKVX_HdwSpiTransfer& t, std::string& error)
{
    std::vector<std::pair<std::string, std::string>> fields;
    if (!SplitFields(text, fields, error))
        return false;
    for (const auto& [key, value] : fields) {
        uint64_t n = 0;
        std::vector<uint8_t> bytes;
        if (key == "cs" && FieldNumber(key, value, 255, n, error)) {
            t.ChipSelect = uint8_t(n);
        } else if (key == "keep" && FieldNumber(key, value, 1, n, error)) {
            t.KeepSelected = n == 1;
        } else if (key == "out" && ParseUartBytes(value, bytes, error)) {
            t.Out = CKVX_Uint8Vector(bytes.data(), unsigned(bytes.size()));
        } else {
            if (error.empty())
                error = "unknown SPI field \"" + key + "\" (out, cs, keep)";
            return false;
        }
    }
    if (t.Out.IsEmpty())
        error = "an SPI transfer needs out=";
    return error.empty();
}

int RunMasterSend(const ParsedArgs& parsed, const PortSpec& target, const PortOptions& options)
{
    const auto& pos = parsed.Positionals();
    std::vector<CKVX_HdwI2cTransfer> i2c;
    std::vector<CKVX_HdwSpiTransfer> spi;
    std::string error;
    for (size_t i = 1; i < pos.size(); ++i) {
        const bool ok = target.PortType == HDW_PORT_I2C ? ParseI2cValue(pos[i], i2c.emplace_back(), error)
                                                        : ParseSpiValue(pos[i], spi.emplace_back(), error);
        if (!ok)
            return Fail("send: " + error, ExitUsage);
    }
    CKVX_HdwI2cPort::CParameters ip;
    CKVX_HdwSpiPort::CParameters sp;
    uint64_t n = 0;
    if (parsed.Has("speed") && !ParseBitRate(parsed.Get("speed"), ip.BusSpeed, error))
        return Fail("send: --speed: " + error, ExitUsage);
    if (parsed.Has("clock") && !ParseBitRate(parsed.Get("clock"), sp.ClockHz, error))
        return Fail("send: --clock: " + error, ExitUsage);
    if (parsed.Has("mode")) {
        if (!FieldNumber("--mode", parsed.Get("mode"), 3, n, error))
            return Fail("send: " + error, ExitUsage);
        sp.Mode = uint8_t(n);
    }
    if (parsed.Has("word-bits")) {
        if (!FieldNumber("--word-bits", parsed.Get("word-bits"), 16, n, error))
            return Fail("send: " + error, ExitUsage);
        sp.WordBits = uint8_t(n);
    }
    if (options.OpenTimeoutMs)
        ip.Timeout = sp.Timeout = *options.OpenTimeoutMs;

    Session session;
    if (!OpenSession(parsed, session, error))
        return Fail(error);
    std::string name;
    CKVX_HdwPort* port = session.Resolve(target, name, error);
    if (!port)
        return Fail(error);
    const unsigned type = target.PortType == HDW_PORT_I2C ? HDW_SERVICE_I2C_MASTER : HDW_SERVICE_SPI_MASTER;
    CKVX_HdwService* service = nullptr;
    if (const unsigned rc = port->EnableService(type, &service, nullptr))
        return Fail(name + ": the master service was refused (" + std::to_string(rc) + ")");
    CKVX_HdwPort::CParameters* params = target.PortType == HDW_PORT_I2C ? static_cast<CKVX_HdwPort::CParameters*>(&ip)
                                                                        : static_cast<CKVX_HdwPort::CParameters*>(&sp);
    if (const unsigned rc = port->Open(params))
        return Fail(name + ": open failed (" + std::to_string(rc) + ")");
    int exit = ExitOk;
    for (auto& t : i2c) {
        const unsigned rc = static_cast<CKVX_HdwI2cMasterService*>(service)->Transfer(t, kWaitMs);
        std::printf("%-8s addr=0x%03X  W %s  R %s  acked %u  %s\n", name.c_str(), unsigned(t.Address),
            Hex(t.Write).c_str(), Hex(t.Read).c_str(), unsigned(t.Acked), ResultText(rc, t.NackOnAddress, t.Fault));
        exit = rc ? ExitFailed : exit;
    }
    for (auto& t : spi) {
        const unsigned rc = static_cast<CKVX_HdwSpiMasterService*>(service)->Transfer(t, kWaitMs);
        const std::string cs =
            t.ChipSelect == CKVX_HdwSpiTransfer::PortChipSelect ? "port" : std::to_string(t.ChipSelect);
        std::printf("%-8s cs=%s  out %s  in %s  %s\n", name.c_str(), cs.c_str(), Hex(t.Out).c_str(), Hex(t.In).c_str(),
            ResultText(rc, false, 0));
        exit = rc ? ExitFailed : exit;
    }
    std::fflush(stdout);
    port->Close();
    return exit;
}

} // namespace hdwtool
