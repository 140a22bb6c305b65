// hdwtool send on an I2C or SPI master: each value is one transfer, run in
// the order given and waited for; one line per transfer with its result.
//
//   i2c: addr=ADDR[,reg=N][,write=BYTES][,read=N][,tenbit=1]
//   spi: out=BYTES[,cs=N][,keep=1]
//
// BYTES as for UART ("hex:20.01.02" or text); reg=N is one byte written
// before them (a register address). --speed sets the I2C bus speed,
// --mode, --clock and --word-bits the SPI master.
#include "Commands.h"
#include "MasterPort.h"
#include "MasterSend.h"

#include <chrono>
#include <cstdio>

namespace hdwtool {

namespace {

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
    error.clear(); // the result is read from it below
    std::vector<std::pair<std::string, std::string>> fields;
    if (!SplitFields(text, fields, error))
        return false;
    bool haveAddress = false;
    std::vector<uint8_t> reg, write;
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
        } else if (key == "reg" && FieldNumber(key, value, 0xFF, n, error)) {
            reg.assign(1, uint8_t(n));
        } else if (key == "write" && ParseUartBytes(value, bytes, error)) {
            write = bytes;
        } else {
            if (error.empty())
                error = "unknown I2C field \"" + key + "\" (addr, reg, write, read, tenbit)";
            return false;
        }
    }
    reg.insert(reg.end(), write.begin(), write.end());
    t.Write = CKVX_Uint8Vector(reg.data(), unsigned(reg.size()));
    if (!haveAddress)
        error = "an I2C transfer needs addr=";
    else if (t.Check() != 0)
        error = "address or length out of range in \"" + text + "\"";
    return error.empty();
}

bool ParseSpiValue(const std::string& text, CKVX_HdwSpiTransfer& t, std::string& error)
{
    error.clear(); // the result is read from it below
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
    std::vector<MasterTransfer> transfers(pos.size() - 1);
    std::string error;
    for (size_t i = 1; i < pos.size(); ++i)
        if (!ParseMasterValue(target.PortType, pos[i], transfers[i - 1], error))
            return Fail("send: " + error, ExitUsage);
    Session session; // outlives the port
    MasterPort master;
    if (!master.ParseSettings(parsed, options, error))
        return Fail("send: " + error, ExitUsage);
    if (!OpenSession(parsed, session, error) || !master.Open(session, target, error))
        return Fail(error);
    const auto start = std::chrono::steady_clock::now();
    int exit = ExitOk;
    for (auto& t : transfers) {
        const unsigned rc = master.Run(t);
        const auto us = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start);
        std::printf("%s\n",
            RenderRow(MasterFields(uint64_t(us.count()), master.Name(), t, rc), MasterColumns(), OutputFormat::Text)
                .c_str());
        exit = rc ? ExitFailed : exit;
    }
    std::fflush(stdout);
    return exit;
}

} // namespace hdwtool
