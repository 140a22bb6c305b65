#pragma once
// Per-channel control and status records of a command-protocol unit, kept
// by its instance; the configuration commands read them, the events and
// services update them.
//
// Bytes of the configuration records taken from them (offsets in the
// command record; a field is sent as its byte value unless a bit is named):
// - ARINC 429 transmit (code AtxConfigBase + channel): byte 4 bit 0
//   Enabled, bit 1 Option1, bit 5 Option5, bit 6 Option6; byte 7
//   Setting7; bytes 12..14 Settings12; byte 15 bit 0 Option15.
//   FifoWaiting is status only.
// - ARINC 429 receive (code ArxConfigBase + channel): no per-channel
//   bytes; enable and label flags come with the call.
// - CAN (code CanConfigBase + channel): byte 4 Enabled (bit 0 starts the
//   controller), 5 ModeFlagA, 6 ModeFlagB, 7..10 FilterA, 11..18 FilterB,
//   19 PrescalerIndex, 20 Segment1, 21 Segment2. The rest is status only.
// - UART (code UartConfigBase + channel): byte 4 bit 0 Enabled, bit 5
//   Option5; byte 8 Setting8. ChunkCounter numbers the transmit records.
// - MIL-STD-1553 (code MilStd1553ConfigBase + channel): bytes 4..12 are
//   Mode, Flags, Count, RtStatus, ResponseTimeout, TablePage, StopAfter,
//   ResponseTime, Reserved (docs/mil-std-1553.md).
// Status events update them before they are dispatched: kind 1 sets
// AtxCtrl[channel].FifoWaiting, kind 2 sets CanCtrl[channel].FaultState,
// TxWaiting, ErrReg0 and ErrReg1 from the status word.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwKvxArinc429TxCtrlStatus : public CKVX_Object {
public:
    uint8_t Enabled = 0;
    uint8_t Option1 = 1; // flags bit 1
    uint8_t Option5 = 0; // flags bit 5
    uint8_t Option6 = 0; // flags bit 6
    uint8_t Setting7 = 0; // byte 7
    uint8_t Settings12[3] = {}; // bytes 12..14
    uint8_t Option15 = 0; // byte 15 bit 0
    uint32_t FifoWaiting = 0; // words waiting in the unit's FIFO (status kind 1)
};
class HDWLIB_EXPORT CKVX_HdwKvxArinc429RxCtrlStatus : public CKVX_Object {
public:
    uint8_t Enabled = 0;
    uint8_t LabelFlags[256] = {}; // 1: the unit passes that label
    bool HasFilter = false; // false: all labels pass
};
class HDWLIB_EXPORT CKVX_HdwKvxCanCtrlStatus : public CKVX_Object {
public:
    uint8_t Enabled = 0;
    uint8_t ModeFlagA = 1;
    uint8_t ModeFlagB = 1;
    // Acceptance filters, most significant byte first: group A for
    // standard identifiers (code 2 bytes, mask 2 bytes), group B for
    // extended ones (code 4 bytes, mask 4 bytes).
    uint8_t FilterA[4] = {};
    uint8_t FilterB[8] = {};
    // Bit timing from ExtractCanTimingParameters.
    uint8_t PrescalerIndex = 0;
    uint8_t Segment1 = 0;
    uint8_t Segment2 = 0;
    uint32_t FaultState = 3; // status kind 2, bits 0-7
    uint32_t TxWaiting = 0; // bits 8-15
    uint8_t ErrReg0 = 0;
    uint8_t ErrReg1 = 0;
};
class HDWLIB_EXPORT CKVX_HdwKvxUartCtrlStatus : public CKVX_Object {
public:
    uint8_t Enabled = 0;
    uint8_t Option5 = 0;
    uint8_t Setting8 = 0;
    uint32_t ChunkCounter = 0; // per transmit record
};
class HDWLIB_EXPORT CKVX_HdwKvxMilStd1553Config : public CKVX_Object {
public:
    enum t_Mode : uint8_t { ModeIdle = 0, ModeBc = 1, ModeRt = 2 };
    enum t_Flags : uint8_t {
        FlagRun = 1u << 0,
        FlagBusA = 1u << 1,
        FlagBusB = 1u << 2,
        FlagMonitor = 1u << 3,
        FlagTransformer = 1u << 4,
        FlagStartOneShots = 1u << 5, // trigger: run Count one-shot descriptors
        FlagSwitchTable = 1u << 6, // trigger: switch to TablePage at the next minor-frame boundary
    };
    static constexpr uint8_t Triggers = FlagStartOneShots | FlagSwitchTable;

    uint8_t Mode = ModeIdle; // byte 4
    uint8_t Flags = 0; // byte 5
    uint8_t Count = 0; // byte 6: BC one-shot count, RT terminal address
    uint8_t RtStatus = 0; // byte 7: RT status bits
    uint8_t ResponseTimeout = 14; // byte 8: µs
    uint8_t TablePage = 0; // byte 9: BC major frame table page (0x10 or 0x18)
    uint8_t StopAfter = 0; // byte 10: BC major frame cycles, 0 = until stopped
    uint8_t ResponseTime = 0; // byte 11: RT response time µs (0 = 8)
    uint8_t Reserved = 0; // byte 12
};
