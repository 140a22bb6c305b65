#include <hdwsim/MilStd1553Options.h>

#include <cstdlib>

namespace hdwsim {

namespace {
// A whole decimal number up to `max`.
bool Number(const std::string& text, unsigned long max, unsigned& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 10)
        return false;
    const unsigned long v = std::strtoul(text.c_str(), nullptr, 10);
    if (v > max)
        return false;
    value = static_cast<unsigned>(v);
    return true;
}

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    for (size_t pos = 0;;) {
        const size_t end = text.find(separator, pos);
        parts.push_back(text.substr(pos, end == std::string::npos ? std::string::npos : end - pos));
        if (end == std::string::npos)
            return parts;
        pos = end + 1;
    }
}
} // namespace

bool ParseMilStd1553Terminals(const std::string& text, std::vector<unsigned>& addresses)
{
    std::vector<unsigned> found;
    for (const std::string& part : Split(text, ',')) {
        unsigned a = 0;
        if (!Number(part, 30, a))
            return false;
        found.push_back(a);
    }
    addresses.insert(addresses.end(), found.begin(), found.end());
    return true;
}

bool ParseMilStd1553Fault(const std::string& text, MilStd1553FaultOption& option)
{
    const std::vector<std::string> parts = Split(text, ':');
    MilStd1553FaultOption o;
    if (parts.size() < 3 || parts.size() > 4 || !Number(parts[0], 30, o.Address))
        return false;
    if (parts[1] == "A" || parts[1] == "AB")
        o.Buses.push_back(0);
    if (parts[1] == "B" || parts[1] == "AB")
        o.Buses.push_back(1);
    if (parts[2] == "noresponse")
        o.Fault = MilStd1553Fault::NoResponse;
    else if (parts[2] == "wordcount")
        o.Fault = MilStd1553Fault::BadWordCount;
    else if (parts[2] == "parity")
        o.Fault = MilStd1553Fault::ParityError;
    if (o.Buses.empty() || o.Fault == MilStd1553Fault::None)
        return false;
    if (parts.size() == 4 && (!Number(parts[3], 0xFFFFFFFFul, o.Transfers) || o.Transfers == 0))
        return false;
    option = o;
    return true;
}

} // namespace hdwsim
