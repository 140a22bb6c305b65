#pragma once
// The bodies of the MIL-STD-1553 event records (type 8), from the kind byte
// on; the time stamp is put before them when the record is sent.
//   kind 1: transfer identifier, n, n data words, status 1, status 2, flags
//   kind 2: header (address, bus, broadcast, monitor; subaddress or mode
//           code, transmit; n, mode code; flags 0..4), n data words, then
//           command 1, command 2, status 1, status 2, flags
//   kind 3, 4: six zero bytes

#include "Mil1553Transfer.h"

#include <cstdint>
#include <vector>

namespace hdwsim::mil {

enum : unsigned { KindTransfer = 1, KindAccess = 2, KindSwitched = 3, KindStopped = 4 };

std::vector<uint8_t> TransferRecord(uint16_t transferId, const Attempt& last, uint16_t flags);
// `seen` is the command the record describes (the terminal's own, or for a
// monitor the first command word), `data` the data words.
std::vector<uint8_t> AccessRecord(const Attempt& a, Command seen, bool monitor, const std::vector<uint16_t>& data);
std::vector<uint8_t> ControlRecord(unsigned kind);

} // namespace hdwsim::mil
