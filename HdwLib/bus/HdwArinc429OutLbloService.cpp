#include <HdwLib/bus/HdwArinc429OutLbloService.h>
#include <HdwLib/bus/internal/MessageQueue.h>
#include <HdwLib/bus/internal/ServiceParameters.h>

#include <algorithm>

CKVX_HdwArinc429OutLbloService::CLabelCtrl::~CLabelCtrl() = default;

uint32_t CKVX_HdwArinc429OutLbloService::CLabelCtrl::GetControlWord() const
{
    return ((uint32_t(Period) - 1u) & PeriodMask) | (Enabled ? FlagEnabled : 0u) |
        (TransmitOnce ? FlagTransmitOnce : 0u);
}

void CKVX_HdwArinc429OutLbloService::CLabelCtrl::SetFromControlWord(uint32_t word)
{
    Period = static_cast<unsigned short>((word & PeriodMask) + 1u);
    Enabled = (word & FlagEnabled) ? 1 : 0;
    TransmitOnce = (word & FlagTransmitOnce) ? 1 : 0;
}

CKVX_HdwArinc429OutLbloService::CParameters::~CParameters() = default;

CKVX_HdwArinc429OutLbloService::CKVX_HdwArinc429OutLbloService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_ARINC429_LABEL_OUT;
}

CKVX_HdwArinc429OutLbloService::~CKVX_HdwArinc429OutLbloService() = default;

unsigned CKVX_HdwArinc429OutLbloService::CheckRunning() const
{
    return hdw::bus::RunState(GetStatus());
}

void CKVX_HdwArinc429OutLbloService::ClearTable()
{
    std::fill(std::begin(Defined), std::end(Defined), false);
    std::fill(std::begin(HasData), std::end(HasData), false);
}

unsigned CKVX_HdwArinc429OutLbloService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    TxEnabled = EnableOnStart != 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    TxEnabled = false;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(*this, params, [this](CParameters& p) { p.EnableOnStart = EnableOnStart; });
}

unsigned CKVX_HdwArinc429OutLbloService::SetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersIn(*this, params, [this](const CParameters& p) { EnableOnStart = p.EnableOnStart; });
}

unsigned CKVX_HdwArinc429OutLbloService::SetTxEnabled(bool enabled)
{
    if (const unsigned rc = CheckRunning())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    TxEnabled = enabled;
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::EnableTx()
{
    return SetTxEnabled(true);
}
unsigned CKVX_HdwArinc429OutLbloService::DisableTx()
{
    return SetTxEnabled(false);
}

unsigned CKVX_HdwArinc429OutLbloService::ResetTx()
{
    if (const unsigned rc = CheckRunning())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::SetLabelsCtrl(const CLabelCtrl* ctrls, unsigned int count)
{
    if (const unsigned rc = CheckRunning())
        return rc;
    if (count == 0)
        return 0;
    if (!ctrls || !std::all_of(ctrls, ctrls + count, [](const CLabelCtrl& c) { return c.IsValid(); }))
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < count; ++i) {
        Ctrls[ctrls[i].Label] = ctrls[i];
        Defined[ctrls[i].Label] = true;
    }
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::UpdateMessages(const CKVX_HdwArinc429Message* messages, unsigned int count)
{
    if (const unsigned rc = CheckRunning())
        return rc;
    if (count == 0)
        return 0;
    if (!messages)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    if (!std::all_of(messages, messages + count, [this](const CKVX_HdwArinc429Message& m) { return Defined[m.Label]; }))
        return HDW_ERR_ARGUMENT;
    for (unsigned i = 0; i < count; ++i) {
        Data[messages[i].Label] = messages[i];
        HasData[messages[i].Label] = true;
    }
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::GetLabelCtrl(unsigned char label, CLabelCtrl& ctrl)
{
    CKVX_HdwServiceLock lock(*this);
    if (!Defined[label])
        return HDW_ERR_NOTHING_TO_READ;
    ctrl = Ctrls[label];
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::GetLabelMessage(unsigned char label, CKVX_HdwArinc429Message& message)
{
    CKVX_HdwServiceLock lock(*this);
    if (!HasData[label])
        return HDW_ERR_NOTHING_TO_READ;
    message = Data[label];
    return 0;
}

unsigned CKVX_HdwArinc429OutLbloService::GetDefinedLabelsCount()
{
    CKVX_HdwServiceLock lock(*this);
    return unsigned(std::count(std::begin(Defined), std::end(Defined), true));
}

bool CKVX_HdwArinc429OutLbloService::IsTxEnabled()
{
    CKVX_HdwServiceLock lock(*this);
    return TxEnabled;
}
