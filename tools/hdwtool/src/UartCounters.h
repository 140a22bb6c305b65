#pragma once
// The counters a Sorrel keeps per open UART, asked for with the Cctx and
// Dctx port packets (docs/sorrel.md), for monitor's end-of-run line:
//
//   uart:1 counters: received 1024, lost 0, sent 0, accepted 0, framing errors 0, parity errors 0, resends 0
//
// received/lost: bytes the unit took from the line and dropped for a full
// receive buffer; sent/accepted: bytes it put on the line and took from the
// host; framing and parity errors since the port opened; resends: Data
// buffers this host sent again for want of an acknowledgement.

#include <HdwLib/HdwLib.h>

#include <cstdint>
#include <string>

namespace hdwtool {

struct UartCounters {
    uint32_t Received = 0;
    uint32_t Lost = 0;
    uint32_t Sent = 0;
    uint32_t Accepted = 0;
    uint16_t FramingErrors = 0;
    uint16_t ParityErrors = 0;
    uint64_t Resends = 0;
};

// Asks the unit for an open port's counters. False when the port is no
// Sorrel UART (`error` empty) or the unit did not answer (a reason).
bool ReadUartCounters(CKVX_HdwPort* port, UartCounters& counters, std::string& error);
std::string FormatUartCounters(const std::string& portName, const UartCounters& counters);

} // namespace hdwtool
