#pragma once
// Label-oriented input of an ARINC 429 receiver (service type 6): instead of
// a FIFO of every word, a table that keeps, per label and SDI, the latest
// word received with its time stamp and a count of receptions. The
// application reads one label's latest word, or every entry that changed
// since it last read it.
//
// The filter selects labels and, per label, SDI values (a 4-bit mask, bit
// SDI); a new service accepts everything and the filter survives Start and
// Stop. With KeyBySdi 0 the SDI is not part of the key: each label has
// one entry (kept under SDI 0) holding the latest word of any SDI.
//
// This class keeps the parameters, the filter and the table and answers the
// reads. A unit driver derives from it and feeds it from ProcessEvent,
// under the device lock it already holds: StoreReceived(message, eventTime).
// It overrides the filter and Rx operations to send the unit's commands,
// calling the generic versions first. Lock rule: every member after
// construction is touched only under the device lock.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>

class HDWLIB_EXPORT CKVX_HdwArinc429InLbloService : public CKVX_HdwService {
public:
    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // 1: one entry per label and SDI; 0: one entry per label.
        unsigned char KeyBySdi = 1;
    };

    explicit CKVX_HdwArinc429InLbloService(CKVX_HdwObject* port);
    ~CKVX_HdwArinc429InLbloService() override;

    // Empty the table and set the run state (1 / 0); reception is enabled
    // by Start; the filter stays.
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    // Reception on / off (words arriving while off are not stored); the
    // table stays.
    virtual unsigned EnableRx();
    virtual unsigned DisableRx();
    // Empty the table.
    virtual unsigned ResetRx();
    // Filter: accept `label` for the SDI values whose bit is set in
    // `sdiMask` (bits 0..3); 0 is the same as DiscardLabel.
    virtual unsigned AcceptLabel(unsigned char label, unsigned char sdiMask);
    virtual unsigned DiscardLabel(unsigned char label);
    virtual unsigned AcceptAllLabels();
    virtual unsigned DiscardAllLabels();
    // The latest word of `label` / `sdi` (sdi ignored with KeyBySdi 0)
    // with its time stamp and the number of words received for it since
    // Start or ResetRx; clears its changed mark. 4 when none was received,
    // 2 for an SDI above 3, 29 / 15 when stopped / failed.
    virtual unsigned ReadLabel(
        unsigned char label, unsigned char sdi, CKVX_HdwArinc429Message& message, unsigned int& receiveCount);
    // Copies the latest word of every entry that received a word since it
    // was last read, in label then SDI order, at most maxCount, and clears
    // their changed marks. 0 with readCount 0 when nothing changed.
    virtual unsigned ReadChangedLabels(
        CKVX_HdwArinc429Message* messages, unsigned int maxCount, unsigned int& readCount);

    // The SDI mask the filter holds for `label`, under the device lock.
    unsigned char GetLabelFilter(unsigned char label);
    // The unit's hardware label table for this filter: 1 for a label any of
    // whose SDI values is accepted. Caller holds the device lock.
    void GetLabelTable(uint8_t* flags) const;
    bool IsRxEnabled();

protected:
    // Driver's receive path, caller holds the device lock: when reception is
    // on and the filter passes the word, it becomes its entry's latest word
    // with the event time. True when it was stored.
    bool StoreReceived(const CKVX_HdwArinc429Message& message, uint64_t eventTime);
    unsigned EntryIndex(unsigned label, unsigned sdi) const { return label * 4u + (KeyBySdi ? (sdi & 3u) : 0u); }
    void ClearTable();
    unsigned SetRxEnabled(bool enabled);
    // The SDI mask of `label`, or of every label for -1.
    void SetSdiFilter(int label, unsigned char sdiMask);

    struct CEntry {
        CKVX_HdwArinc429Message Message;
        uint32_t Count = 0;
        bool Changed = false;
    };

    unsigned char KeyBySdi = 1;
    bool RxEnabled = false;
    unsigned char SdiFilter[256];
    CEntry* Entries; // 256 labels x 4 SDI values
};
