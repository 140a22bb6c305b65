#include "Ports.h"

#include "Values.h"

#include <HdwLib/HdwLib.h>
#include <Names.h>

namespace hdwtool {

std::string PortTypeName(unsigned portType)
{
    return hdwnames::PortTypeName(portType);
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
    const unsigned portType = hdwnames::PortTypeNamed(type);
    uint64_t num = 0;
    if (portType == 0 || colon == std::string::npos || !ParseNumber(text.substr(colon + 1), num) || num > 0xFFFF) {
        error = "\"" + text + "\" is not a port (TYPE:N with TYPE one of " + hdwnames::PortTypeList() +
            ", or a key from \"hdwtool list\")";
        return false;
    }
    target = PortSpec{};
    target.PortType = portType;
    target.AbsNum = unsigned(num);
    return true;
}

} // namespace hdwtool
