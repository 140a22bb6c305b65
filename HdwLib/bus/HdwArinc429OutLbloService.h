#pragma once
// Label-oriented output of an ARINC 429 transmitter (service type 7): the
// unit keeps a table of labels, each with its own transmit control and its
// latest data word, and sends every enabled label on its own, cyclically at
// its period, without the host pushing each word. The application defines
// labels with SetLabelsCtrl, changes their data with UpdateMessages and
// switches the whole table with EnableTx / DisableTx / ResetTx.
//
// A label is sent only once it has data. Labels are keyed by the label byte
// alone: the SDI, SSM and data of the word all come from UpdateMessages.
//
// This class keeps the parameters, the label controls and the latest data
// of each label, and checks the calls; a unit driver derives from it, calls
// the generic version first and sends the unit's commands when it succeeds.
// Lock rule: the tables and the transmit switch are touched only under the
// device lock.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429OutLbloService : public CKVX_HdwService {
public:
    // Transmit control of one label, as the unit's label-control command
    // carries it (record bytes 5..13):
    //   5      Label
    //   6..9   control word: bits 0..9 Period - 1, bit 10 Enabled,
    //          bit 11 TransmitOnce, bits 12..31 zero
    //   10..11 Offset, 16 bits
    //   12..13 RepeatCount, 16 bits
    class HDWLIB_EXPORT CLabelCtrl : public CKVX_Object {
    public:
        static constexpr unsigned MinPeriod = 1;
        static constexpr unsigned MaxPeriod = 1024;
        static constexpr uint32_t PeriodMask = 0x3FFu;
        static constexpr uint32_t FlagEnabled = 1u << 10;
        static constexpr uint32_t FlagTransmitOnce = 1u << 11;

        CLabelCtrl() = default;
        explicit CLabelCtrl(unsigned char label, unsigned short period = 100) : Label(label), Period(period) {}
        CLabelCtrl(const CLabelCtrl&) = default;
        CLabelCtrl(CLabelCtrl&&) = default;
        CLabelCtrl& operator=(const CLabelCtrl&) = default;
        CLabelCtrl& operator=(CLabelCtrl&&) = default;
        ~CLabelCtrl() override;

        // True when the unit can represent it (Period 1..1024).
        bool IsValid() const { return Period >= MinPeriod && Period <= MaxPeriod; }
        // The control word of the command (valid controls only).
        uint32_t GetControlWord() const;
        // Period, Enabled and TransmitOnce from a control word.
        void SetFromControlWord(uint32_t word);

        unsigned char Label = 0;
        // Time between two transmissions of the label, 1..1024 ms.
        unsigned short Period = 100;
        // 0 keeps the label in the table without sending it.
        unsigned char Enabled = 1;
        // 1: the label is sent once each time its data is updated, not
        // cyclically (Period, Offset and RepeatCount do not apply).
        unsigned char TransmitOnce = 0;
        // Delay of the first transmission after the control takes effect,
        // in ms: spreads labels of one period over the cycle.
        unsigned short Offset = 0;
        // Transmissions after which a cyclic label stops by itself; 0 = no limit.
        unsigned short RepeatCount = 0;
    };

    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // 1: transmission is on after Start; 0: the application defines its
        // labels first and calls EnableTx.
        unsigned char EnableOnStart = 1;
    };

    explicit CKVX_HdwArinc429OutLbloService(CKVX_HdwObject* port);
    ~CKVX_HdwArinc429OutLbloService() override;

    // Clear the label table and set the run state (1 / 0); Start switches
    // transmission on or off as EnableOnStart says.
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    // Switch the transmission of the whole table on / off; the table stays.
    virtual unsigned EnableTx();
    virtual unsigned DisableTx();
    // Forget every label (controls and data).
    virtual unsigned ResetTx();
    // Defines or changes the controls of `count` labels. 2, changing
    // nothing, when one of them is invalid or the array is missing.
    virtual unsigned SetLabelsCtrl(const CLabelCtrl* ctrls, unsigned int count);
    // New data words for labels already defined, each by its Label. 2,
    // changing nothing, when a label has no control yet.
    virtual unsigned UpdateMessages(const CKVX_HdwArinc429Message* messages, unsigned int count);

    // Reads of the table, under the device lock: 4 for a label not defined
    // (GetLabelCtrl) or without data (GetLabelMessage).
    unsigned GetLabelCtrl(unsigned char label, CLabelCtrl& ctrl);
    unsigned GetLabelMessage(unsigned char label, CKVX_HdwArinc429Message& message);
    unsigned GetDefinedLabelsCount();
    bool IsTxEnabled();

protected:
    // The checks every operation makes first: 29 stopped, 15 failed.
    unsigned CheckRunning() const;
    unsigned SetTxEnabled(bool enabled);
    // Forgets every label. Caller holds the device lock.
    void ClearTable();

    unsigned char EnableOnStart = 1;
    bool TxEnabled = false;
    bool Defined[256] = {};
    bool HasData[256] = {};
    CLabelCtrl Ctrls[256];
    CKVX_HdwArinc429Message Data[256];
};
