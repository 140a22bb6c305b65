#pragma once
// What the emulated unit has seen and done, as the unit counts it. Tests and
// the demo compare these with what the host application read.

#include <hdwsim/UnitModel.h>

#include <array>
#include <cstdint>

namespace hdwsim {

struct Counters {
    using PerChannel = std::array<uint64_t, MaxChannels>;

    // Host frames and commands.
    uint64_t FramesReceived = 0; // host frames with a good CRC
    uint64_t FramesBadCrc = 0; // host frames dropped for their CRC
    uint64_t FramesMalformed = 0; // good CRC but records that do not add up
    uint64_t LargestFramePayload = 0; // payload bytes of the largest good host frame
    uint64_t BytesDiscarded = 0; // bytes skipped while hunting for a start byte
    uint64_t BytesIgnored = 0; // serial bytes read while hung up
    uint64_t CommandsReceived = 0;
    uint64_t CommandsUnknown = 0; // unknown code, bad record length or channel; a code the unit lacks is not echoed
    uint64_t EchoesSent = 0;
    uint64_t EchoesSuppressed = 0; // not sent because echoing is stopped
    uint64_t StatusEventsSent = 0;
    uint64_t SessionOpens = 0;
    uint64_t SessionCloses = 0;
    // Commands by code (bit 7 removed), whether or not the unit knows the code.
    std::array<uint64_t, 128> CommandsByCode{};
    uint64_t KeepAlives = 0;
    uint64_t WatchdogExpiries = 0; // the host fell silent past the session watchdog
    uint64_t CriticalFailuresSent = 0;

    // Unit frames.
    uint64_t FramesSent = 0; // unit frames handed to a link
    uint64_t FramesLost = 0; // unit frames with no link to take them
    uint64_t EventsSent = 0;

    // ARINC 429, per channel.
    PerChannel A429Pushed{}; // words accepted into a transmit FIFO
    PerChannel A429Transmitted{}; // words that left the transmitter
    PerChannel A429FifoDropped{}; // words pushed into a full FIFO
    PerChannel A429FifoPeak{}; // the most words a transmit FIFO held
    PerChannel A429Received{}; // receive events sent
    PerChannel A429FilterDropped{}; // dropped by the receive label filter
    PerChannel A429RxDisabled{}; // arrived at a disabled receiver
    PerChannel A429SpeedMismatch{}; // transmitter and receiver at different speeds
    PerChannel A429WireLost{}; // lost on the wire by LoseNextA429Words
    PerChannel A429LabelCtrls{}; // label-control commands taken
    PerChannel A429LabelData{}; // label-data commands taken (words for the table)
    PerChannel A429LabelResets{}; // label-table resets
    PerChannel A429LabelWords{}; // words sent from the label table

    // CAN, per channel.
    PerChannel CanPushed{};
    PerChannel CanTransmitted{};
    PerChannel CanFifoDropped{};
    PerChannel CanReceived{};
    PerChannel CanRxNotStarted{}; // arrived at a controller that is not started

    // UART, per channel (bytes).
    PerChannel UartTransmitted{};
    PerChannel UartReceived{};
    PerChannel UartRxDisabled{};
    PerChannel UartRxDropped{}; // received into a full receive buffer (port-packet UARTs)
    PerChannel UartFramingErrors{}; // characters from an end with other line settings

    // HOE port packets (port-packet UARTs).
    uint64_t PortPacketsIn = 0; // host port packets taken
    uint64_t PortPacketsOut = 0; // port packets sent, resends included
    uint64_t PortDataResends = 0; // Data buffers sent again for a missing acknowledgement
    uint64_t HostPacketsIgnored = 0; // ignored on purpose (DropHostPackets)

    // MIL-STD-1553.
    uint64_t Mil1553SramWords = 0; // SRAM words written
    uint64_t Mil1553Attempts = 0; // message attempts on the bus (a retry is a second one)
    PerChannel Mil1553Transfers{}; // completed controller messages (kind-1 events)
    PerChannel Mil1553RtAccesses{}; // remote-terminal access records (kind 2)
    PerChannel Mil1553MonitorRecords{}; // monitor records (kind 2)
    PerChannel Mil1553ConfigsRefused{}; // another mode while running
    // Discrete banks.
    PerChannel DiscreteInEvents{}; // input change events sent, per bank
    PerChannel DiscreteOutEvents{}; // output events counted in the sequence, per bank
    uint64_t DiscretePulses = 0; // pulse commands taken
    uint64_t DiscreteRefused = 0; // discrete records refused (bank, operation, length, pulse length)
    uint64_t DiscreteFiltered = 0; // input edges that did not outlast the debounce
    uint64_t DiscreteDropped = 0; // change events lost by DropNextDiscreteEvents
    uint64_t DiscreteQueueFull = 0; // change events not reported: 1024 of the bank's unsent
    // I2C and SPI masters, per master.
    PerChannel I2cTransfers{}; // transfer records taken, refused ones too
    PerChannel I2cBytes{}; // bytes written and acknowledged plus bytes read
    PerChannel I2cNacks{}; // transfers ended by a missing acknowledge
    PerChannel I2cFaults{}; // transfers ended by a bus fault
    PerChannel SpiTransfers{};
    PerChannel SpiBytes{}; // bytes shifted in

    // HOE.
    uint64_t UdpPacketsReceived = 0; // accepted packets
    uint64_t UdpPacketsRejected = 0; // failed a check or belong to no session
    uint64_t UdpPacketsSent = 0;
    uint64_t UdpPacketsDropped = 0; // dropped on purpose (fault injection)
    uint64_t SessionsRefused = 0;
    uint64_t SessionsTimedOut = 0;
};

} // namespace hdwsim
