#include "Ports.h"

#include "Values.h"

#include <HdwLib/HdwLib.h>

namespace hdwtool {

namespace {

struct TypeName {
    unsigned Type;
    const char* Name;
};

constexpr TypeName kTypeNames[] = {
    {HDW_PORT_UART, "uart"},
    {HDW_PORT_ARINC429_TX, "a429tx"},
    {HDW_PORT_ARINC429_RX, "a429rx"},
    {HDW_PORT_CAN, "can"},
    {HDW_PORT_MILSTD1553, "1553"},
    {HDW_PORT_DISCRETE_IN, "din"},
    {HDW_PORT_DISCRETE_OUT, "dout"},
    {HDW_PORT_I2C, "i2c"},
    {HDW_PORT_SPI, "spi"},
};

} // namespace

std::string PortTypeName(unsigned portType)
{
    for (const auto& t : kTypeNames)
        if (t.Type == portType)
            return t.Name;
    return "type" + std::to_string(portType);
}

std::string PortName(unsigned portType, unsigned absNum)
{
    return PortTypeName(portType) + ":" + std::to_string(absNum);
}

bool ParsePortSpec(const std::string& text, PortSpec& target, std::string& error)
{
    if (text.find('@') != std::string::npos) {
        if (!CKVX_HdwManager::CPortIdentifier::IsValid(CKVX_String(text))) {
            error = "\"" + text + "\" is not a valid port-identifier key (wrong form or checksum)";
            return false;
        }
        target = PortSpec{};
        target.ByKey = true;
        target.Key = text;
        return true;
    }
    const size_t colon = text.find(':');
    const std::string type = text.substr(0, colon);
    unsigned portType = 0;
    for (const auto& t : kTypeNames)
        if (type == t.Name)
            portType = t.Type;
    uint64_t num = 0;
    if (portType == 0 || colon == std::string::npos || !ParseNumber(text.substr(colon + 1), num) || num > 0xFFFF) {
        error = "\"" + text +
            "\" is not a port (a429rx:N, a429tx:N, can:N, uart:N, din:N, dout:N or a key from \"hdwtool list\")";
        return false;
    }
    target = PortSpec{};
    target.PortType = portType;
    target.AbsNum = unsigned(num);
    return true;
}

} // namespace hdwtool
