#include "Mil1553Records.h"

#include <algorithm>

namespace hdwsim::mil {

namespace {
void Put16(std::vector<uint8_t>& b, uint16_t v)
{
    b.push_back(static_cast<uint8_t>(v));
    b.push_back(static_cast<uint8_t>(v >> 8));
}
void PutWords(std::vector<uint8_t>& b, const std::vector<uint16_t>& words, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        Put16(b, words[i]);
}
} // namespace

std::vector<uint8_t> TransferRecord(uint16_t transferId, const Attempt& last, uint16_t flags)
{
    const size_t n = std::min<size_t>(last.Data.size(), 32);
    std::vector<uint8_t> b{static_cast<uint8_t>(KindTransfer)};
    Put16(b, transferId);
    Put16(b, static_cast<uint16_t>(n));
    PutWords(b, last.Data, n);
    Put16(b, last.Status1);
    Put16(b, last.Status2);
    Put16(b, flags);
    return b;
}

std::vector<uint8_t> AccessRecord(const Attempt& a, Command seen, bool monitor, const std::vector<uint16_t>& data)
{
    const size_t n = std::min<size_t>(data.size(), 32);
    std::vector<uint8_t> b{static_cast<uint8_t>(KindAccess)};
    b.push_back(static_cast<uint8_t>(
        (seen.Address() << 3) | (a.Bus ? 1 : 0) | (seen.IsBroadcast() ? 2 : 0) | (monitor ? 4 : 0)));
    b.push_back(
        static_cast<uint8_t>((seen.ModeCode() ? seen.CountField() : seen.Subaddress()) | (seen.Transmit() ? 0x20 : 0)));
    b.push_back(static_cast<uint8_t>(n | (seen.ModeCode() ? 0x40 : 0)));
    b.push_back(static_cast<uint8_t>(a.Flags & 0x1F));
    PutWords(b, data, n);
    Put16(b, a.Command1);
    Put16(b, a.Command2);
    Put16(b, a.Status1);
    Put16(b, a.Status2);
    Put16(b, a.Flags);
    return b;
}

std::vector<uint8_t> ControlRecord(unsigned kind)
{
    std::vector<uint8_t> b(7, 0);
    b[0] = static_cast<uint8_t>(kind);
    return b;
}

} // namespace hdwsim::mil
