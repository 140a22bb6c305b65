#pragma once
// Label-oriented ARINC 429 services of a command-protocol unit.
//
// Output: the unit keeps a label table per transmitter. SetLabelsCtrl sends
// one label-control command (code 16) per label, UpdateMessages one
// label-data command (code 17) per word, ResetTx the label reset (code 18)
// that empties the table; the unit then sends each enabled label with data
// at its period. DisableTx sends every defined label's control with its
// enabled flag cleared (the table stays on the unit), EnableTx sends them
// again as defined; the transmitter itself stays on, so that a data
// generator on the same channel keeps running. Start configures the channel
// and empties the unit's table; Stop empties it.
//
// Input: fed by the ARINC 429 receive events of its channel. The unit's
// receive label table follows the service's filter (a label passes when
// any of its SDI values is accepted); DisableRx switches the receiver off,
// EnableRx on again.
//
// A critical-failure event sets either service to failed.

#include <HdwLib/bus/HdwArinc429InLbloService.h>
#include <HdwLib/bus/HdwArinc429OutLbloService.h>
#include <HdwLib/units/KvxCommandUnit.h>

class HDWLIB_EXPORT CKVX_HdwKvxArinc429OutLbloService : public CKVX_HdwArinc429OutLbloService {
public:
    explicit CKVX_HdwKvxArinc429OutLbloService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429OutLbloService() override;

    unsigned Start() override;
    unsigned Stop() override;
    unsigned EnableTx() override;
    unsigned DisableTx() override;
    unsigned ResetTx() override;
    unsigned SetLabelsCtrl(const CLabelCtrl* ctrls, unsigned int count) override;
    unsigned UpdateMessages(const CKVX_HdwArinc429Message* messages, unsigned int count) override;
    // A critical failure fails the service.
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;

protected:
    // The control the unit gets for `label`: as defined, disabled while
    // transmission is off. Caller holds the device lock.
    CLabelCtrl EffectiveCtrl(unsigned char label) const;
    // Attaches the controls of every defined label. Caller holds the lock.
    unsigned AttachAllCtrls();
    // After a reconnect the unit has forgotten the table: every defined
    // label's control and last data go to it again.
    unsigned RestoreTable();
};

class HDWLIB_EXPORT CKVX_HdwKvxArinc429InLbloService : public CKVX_HdwArinc429InLbloService {
public:
    explicit CKVX_HdwKvxArinc429InLbloService(CKVX_HdwObject* port);
    ~CKVX_HdwKvxArinc429InLbloService() override;

    unsigned Start() override;
    unsigned ProcessEvent(CKVX_HdwEvent* event) override;
    unsigned EnableRx() override;
    unsigned DisableRx() override;
    unsigned AcceptLabel(unsigned char label, unsigned char sdiMask) override;
    unsigned DiscardLabel(unsigned char label) override;
    unsigned AcceptAllLabels() override;
    unsigned DiscardAllLabels() override;

protected:
    unsigned ReconfigureChannel(bool enable);
};
