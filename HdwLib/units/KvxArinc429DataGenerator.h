#pragma once
// The ARINC 429 data generator of a command-protocol unit. It runs from the
// host tick: each tick it generates the labels due by the unit clock
// (GetUnitTime) and pushes the words into the transmitter's FIFO (code 17),
// keeping at most 512 words there as the output buffer does. Transmit
// events of its own labels confirm words; a periodic FIFO status request
// corrects the count should one be lost. Words that do not fit wait in the
// generator's backlog; transmissions that find the backlog full are counted
// as missed.
//
// It runs beside the label-oriented output on the same transmitter; a label
// that the unit's label table also holds must not be generated (the unit
// takes such a push as new data of the table's label).
// A critical-failure event sets the service to failed.

#include <HdwLib/bus/HdwDataGeneratorService.h>
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/KvxOutputCount.h>

class HDWLIB_EXPORT CKVX_HdwKvxArinc429TxDataGeneratorService : public CKVX_HdwDataGeneratorService {
public:
    explicit CKVX_HdwKvxArinc429TxDataGeneratorService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429TxDataGeneratorService() override;

    // Configures the transmitter on and takes the parity of the port's parameters.
    unsigned Start() override;
    unsigned Stop() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned HdwTimerHandler(uint64_t ticks) override;
    unsigned Enable() override;
    unsigned Disable() override;
    unsigned Reset() override;

    // Words pushed into the unit's FIFO and not yet confirmed on the bus.
    uint64_t GetWordsInUnit();

protected:
    CKVX_HdwKvxOutputCount m_Count;
    CKVX_HdwKvxFifoStatusPoll m_StatusPoll;
    CKVX_HdwKvxArinc429TxPort* m_UnitPort;
    // Labels this generator pushed since Start: their transmit events are
    // its own, even after Reset or a redefinition forgot the label.
    bool m_PushedLabel[256] = {};
};
