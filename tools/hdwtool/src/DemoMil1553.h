#pragma once
// The demo's MIL-STD-1553 traffic: channel 0 the bus controller, channel 1
// remote terminal 5, both on the emulated unit's one bus. A major frame of
// five 20 ms minor frames polls the terminal: a receive and a transmit
// message in every minor frame (50 Hz), two longer ones in the first (10 Hz).
// Every transfer is checked: the controller's must complete, the data the
// terminal transmits must be its words, and every receive message must
// reach the terminal with the words sent.

#include "Channel.h"

#include <cstdint>
#include <string>
#include <vector>

namespace hdwtool {

class DemoMil1553 {
public:
    static constexpr uint8_t Terminal = 5;

    // Opens the channels (the terminal first), loads the schedule and runs it.
    bool Start(Channel& bc, Channel& rt, std::string& error);
    // Reads both channels; the controller's transfers are appended to `shown`.
    bool Poll(std::vector<Item>& shown, std::string& error);
    // Stops the controller after the transfer in progress.
    void Stop();
    // Stopped, and every receive message the controller completed reached the terminal.
    bool Drained();

    // Transfers the controller completed or failed.
    uint64_t Sent() const { return m_Sent; }
    // Of them, those that arrived whole at the other end.
    uint64_t Received() const;
    uint64_t Altered() const { return m_Altered; }
    // Dropped by the services' lists.
    uint64_t Dropped() const;

private:
    Channel* m_Bc = nullptr;
    Channel* m_Rt = nullptr;
    CKVX_HdwMilStd1553RemoteTerminal m_Terminal;
    std::vector<uint16_t> m_ReceiveWords[32]; // what the controller sends per subaddress
    uint64_t m_Sent = 0, m_Completed = 0, m_ReceivesCompleted = 0, m_AtTerminal = 0, m_Altered = 0;
    std::vector<Item> m_Items;
};

} // namespace hdwtool
