#pragma once
// One port as a command uses it: its services (receive, transmit or both),
// its parameters from the command line, and the items that cross it.
//
//   receive on a429rx: ARINC 429 input buffer (with the label filter)
//              a429tx: the words the transmitter put on the bus (signals)
//              can:    CAN input buffer;  uart: byte input buffer
//              1553:   every transfer on the channel's bus (the remote
//                      terminal service as a passive monitor), or the
//                      accesses of the terminal SetMil1553Terminal gives
//              din, dout: the bank's changes (signals)
//   transmit on a429tx: ARINC 429 output buffer; can: CAN output buffer;
//              uart: byte output buffer; dout: discrete output;
//              1553: bus controller, each item a one-shot transfer whose
//              result Poll gives

#include "Discrete.h"
#include "Format.h"
#include "Values.h"

#include <HdwLib/HdwLib.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hdwtool {

class ParsedArgs;

// Port settings of the command line; unset ones keep the port's defaults.
struct PortOptions {
    std::optional<uint32_t> Rate; // ARINC 429 bit rate or UART baud rate
    std::optional<std::string> Parity; // odd, even, none (ARINC 429: none = not checked)
    std::optional<uint32_t> BitRate; // CAN
    std::optional<double> SamplePoint; // CAN
    std::vector<LabelAccept> Accepts; // ARINC 429 receive filter; empty: all
    std::optional<unsigned> OpenTimeoutMs; // how long Open waits for the unit; unset: the port's
};
bool ParsePortOptions(const ParsedArgs& args, PortOptions& options, std::string& error);

// One word, frame or chunk of bytes, received or to be sent.
struct Item {
    unsigned PortType = 0;
    uint64_t TimeUs = 0; // host monotonic microseconds (see TimeColumn.h)
    CKVX_HdwArinc429Message Word;
    CKVX_HdwCanMessage Frame;
    std::vector<uint8_t> Bytes;
    uint32_t Value = 0; // discrete state
    uint32_t Aux = 0; // discrete: the lines that changed
    DiscreteValue Discrete; // to send on a discrete output
    CKVX_HdwMilStd1553Message Transfer; // MIL-STD-1553, received or to send
    bool Outgoing = false; // a value to send (as parsed), not one received
    bool ParityError = false; // ARINC 429 received: the word's parity is not the receiver's
};

// Parses a value for a port of that type (ARINC 429 word, CAN frame, bytes).
bool ParseValueFor(unsigned portType, const std::string& text, Item& item, std::string& error);
const Columns& ColumnsFor(unsigned portType);
// ARINC 429 labels shown in `order`.
Fields ItemFields(const Item& item, const std::string& portName, LabelOrder order = LabelOrder::Reversed);

class Channel {
public:
    Channel(CKVX_HdwPort* port, std::string name);
    ~Channel(); // closes the port

    const std::string& Name() const { return m_Name; }
    unsigned PortType() const { return m_Port->GetPortType(); }

    // Enable the services; call before Open.
    bool EnableReceive(const PortOptions& options, std::string& error);
    bool EnableTransmit(std::string& error);
    // The data generator instead of the output buffer (a429tx only); null
    // with a reason when the port refuses it.
    CKVX_HdwDataGeneratorService* EnableGenerator(std::string& error);
    bool Open(const PortOptions& options, std::string& error);
    void Close();

    // MIL-STD-1553 (before Open): answer as this terminal, Poll giving its
    // accesses instead of every transfer on the bus.
    void SetMil1553Terminal(const CKVX_HdwMilStd1553RemoteTerminal& terminal);
    // The bus controller EnableTransmit enabled on a MIL-STD-1553 channel.
    CKVX_HdwMilStd1553BcService* Mil1553Controller() const { return m_MilBc; }

    // Makes what arrives on the channel wake `group` (after EnableReceive,
    // before Open): its signal service joins the group, one being enabled
    // for receive buffers. False when the channel has no signal for what it
    // receives (UART bytes); it must then be polled.
    bool WakeThrough(CKVX_HdwSignalGroup& group);
    // Appends what arrived since the last call; false with a reason when
    // the service has failed.
    bool Poll(std::vector<Item>& items, std::string& error);
    bool Send(const Item& item, std::string& error);
    // Items written but not yet confirmed on the bus.
    unsigned Pending();
    // What the receive service dropped for a full buffer (or its signal
    // ring for a full ring), since the port opened.
    uint64_t Dropped();
    // The unit instance behind the port; null when it is no command-protocol unit.
    CKVX_HdwKvxUnitInstance* Unit() const;
    // Host monotonic microseconds (the clock of Item::TimeUs).
    static uint64_t HostMicroseconds();

private:
    bool Accepted(const CKVX_HdwArinc429Message& word) const;
    // Host time of a unit time stamp of this port's unit; `readUs` when it
    // cannot be mapped.
    uint64_t StampToHost(uint64_t stamp, uint64_t readUs) const;
    // The MIL-STD-1553 parts (ChannelMil1553.cpp).
    bool EnableMil1553(bool transmit, std::string& error);
    unsigned OpenMil1553();
    unsigned PollMil1553(std::vector<Item>& items, uint64_t hostUs);

    CKVX_HdwPort* m_Port;
    std::string m_Name;
    std::vector<LabelAccept> m_Accepts;
    uint8_t m_A429Parity = 0; // receiver: 0 odd, 1 even, 2 none
    CKVX_HdwArinc429InBufferService* m_A429In = nullptr;
    CKVX_HdwArinc429OutBufferService* m_A429Out = nullptr;
    CKVX_HdwDataGeneratorService* m_Generator = nullptr;
    CKVX_HdwSignalService* m_Signals = nullptr;
    CKVX_HdwSignalService* m_Wake = nullptr; // only wakes: a receive buffer holds the data
    CKVX_HdwCanInBufferService* m_CanIn = nullptr;
    CKVX_HdwCanOutBufferService* m_CanOut = nullptr;
    CKVX_HdwByteInBufferService* m_ByteIn = nullptr;
    CKVX_HdwByteOutBufferService* m_ByteOut = nullptr;
    CKVX_HdwDiscreteOutService* m_DiscreteOut = nullptr;
    CKVX_HdwMilStd1553SingleRtService* m_MilRt = nullptr;
    CKVX_HdwMilStd1553BcService* m_MilBc = nullptr;
    CKVX_HdwMilStd1553RemoteTerminal m_MilTerminal; // SetMil1553Terminal's; unset: passive monitor
    bool m_MilOwnTerminal = false;
    uint64_t m_MilSent = 0, m_MilDone = 0; // one-shot transfers
};

} // namespace hdwtool
