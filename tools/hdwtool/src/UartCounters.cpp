#include "UartCounters.h"

#include "Session.h"

#include <vector>

namespace hdwtool {

namespace {

uint32_t Le32(const std::vector<uint8_t>& b, size_t at)
{
    return uint32_t(b[at]) | uint32_t(b[at + 1]) << 8 | uint32_t(b[at + 2]) << 16 | uint32_t(b[at + 3]) << 24;
}

// One request; its reply when the unit answered it with status 0 and at
// least `size` bytes.
bool Ask(CKVX_HdwKvxSorrelUartPort& port, uint32_t code, size_t size, std::vector<uint8_t>& reply, std::string& error)
{
    unsigned rc = port.Request(code, nullptr, 0, reply);
    if (rc == 0 && reply.size() < size)
        rc = HDW_ERR_MALFORMED_EVENT;
    else if (rc == 0)
        rc = Le32(reply, 0);
    if (rc != 0)
        error = "no counters from the unit (" + ResultText(rc) + ")";
    return rc == 0;
}

} // namespace

bool ReadUartCounters(CKVX_HdwPort* port, UartCounters& c, std::string& error)
{
    error.clear();
    auto* uart = dynamic_cast<CKVX_HdwKvxSorrelUartPort*>(port);
    if (!uart)
        return false;
    std::vector<uint8_t> cctx, dctx;
    if (!Ask(*uart, CKVX_HdwHoe::CodeCctx, 24, cctx, error) || !Ask(*uart, CKVX_HdwHoe::CodeDctx, 32, dctx, error))
        return false;
    c.FramingErrors = uint16_t(cctx[20] | cctx[21] << 8);
    c.ParityErrors = uint16_t(cctx[22] | cctx[23] << 8);
    c.Accepted = Le32(dctx, 4);
    c.Sent = Le32(dctx, 8);
    c.Received = Le32(dctx, 16);
    c.Lost = Le32(dctx, 20);
    const auto* out =
        dynamic_cast<CKVX_HdwKvxSorrelByteOutBufferService*>(port->FindService(HDW_SERVICE_BYTE_OUT_BUFFER));
    c.Resends = out ? out->GetResendCount() : 0;
    return true;
}

std::string FormatUartCounters(const std::string& name, const UartCounters& c)
{
    return name + " counters: received " + std::to_string(c.Received) + ", lost " + std::to_string(c.Lost) + ", sent " +
        std::to_string(c.Sent) + ", accepted " + std::to_string(c.Accepted) + ", framing errors " +
        std::to_string(c.FramingErrors) + ", parity errors " + std::to_string(c.ParityErrors) + ", resends " +
        std::to_string(c.Resends);
}

} // namespace hdwtool
