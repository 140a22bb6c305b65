#include <HdwLib/bus/HdwArinc429InLbloService.h>
#include <HdwLib/bus/internal/MessageQueue.h>
#include <HdwLib/bus/internal/ServiceParameters.h>

#include <algorithm>

namespace {
constexpr unsigned kEntries = 256 * 4;
}

CKVX_HdwArinc429InLbloService::CParameters::~CParameters() = default;

CKVX_HdwArinc429InLbloService::CKVX_HdwArinc429InLbloService(CKVX_HdwObject* port)
    : CKVX_HdwService(port),
      Entries(new CEntry[kEntries])
{
    m_ServiceType = HDW_SERVICE_ARINC429_LABEL_IN;
    std::fill(std::begin(SdiFilter), std::end(SdiFilter), static_cast<unsigned char>(0x0F));
}

CKVX_HdwArinc429InLbloService::~CKVX_HdwArinc429InLbloService()
{
    delete[] Entries;
}

void CKVX_HdwArinc429InLbloService::ClearTable()
{
    std::fill(Entries, Entries + kEntries, CEntry());
}

unsigned CKVX_HdwArinc429InLbloService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    RxEnabled = true;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    RxEnabled = false;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(*this, params, [this](CParameters& p) { p.KeyBySdi = KeyBySdi; });
}

unsigned CKVX_HdwArinc429InLbloService::SetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersIn(*this, params, [this](const CParameters& p) {
        KeyBySdi = p.KeyBySdi ? 1 : 0;
        ClearTable();
    });
}

unsigned CKVX_HdwArinc429InLbloService::SetRxEnabled(bool enabled)
{
    CKVX_HdwServiceLock lock(*this);
    RxEnabled = enabled;
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::EnableRx()
{
    return SetRxEnabled(true);
}
unsigned CKVX_HdwArinc429InLbloService::DisableRx()
{
    return SetRxEnabled(false);
}

unsigned CKVX_HdwArinc429InLbloService::ResetRx()
{
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    return 0;
}

void CKVX_HdwArinc429InLbloService::SetSdiFilter(int label, unsigned char sdiMask)
{
    CKVX_HdwServiceLock lock(*this);
    if (label < 0)
        std::fill(std::begin(SdiFilter), std::end(SdiFilter), sdiMask);
    else
        SdiFilter[label] = sdiMask;
}

unsigned CKVX_HdwArinc429InLbloService::AcceptLabel(unsigned char label, unsigned char sdiMask)
{
    SetSdiFilter(label, sdiMask & 0x0F);
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::DiscardLabel(unsigned char label)
{
    SetSdiFilter(label, 0);
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::AcceptAllLabels()
{
    SetSdiFilter(-1, 0x0F);
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::DiscardAllLabels()
{
    SetSdiFilter(-1, 0);
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::ReadLabel(
    unsigned char label, unsigned char sdi, CKVX_HdwArinc429Message& message, unsigned int& receiveCount)
{
    receiveCount = 0;
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (sdi > 3)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    CEntry& e = Entries[EntryIndex(label, sdi)];
    if (e.Count == 0)
        return HDW_ERR_NOTHING_TO_READ;
    message = e.Message;
    receiveCount = e.Count;
    e.Changed = false;
    return 0;
}

unsigned CKVX_HdwArinc429InLbloService::ReadChangedLabels(
    CKVX_HdwArinc429Message* messages, unsigned int maxCount, unsigned int& readCount)
{
    readCount = 0;
    if (const unsigned rc = hdw::bus::RunState(GetStatus()))
        return rc;
    if (maxCount == 0)
        return 0;
    if (!messages)
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < kEntries && readCount < maxCount; ++i) {
        CEntry& e = Entries[i];
        if (!e.Changed)
            continue;
        messages[readCount++] = e.Message;
        e.Changed = false;
    }
    return 0;
}

unsigned char CKVX_HdwArinc429InLbloService::GetLabelFilter(unsigned char label)
{
    CKVX_HdwServiceLock lock(*this);
    return SdiFilter[label];
}

void CKVX_HdwArinc429InLbloService::GetLabelTable(uint8_t* flags) const
{
    for (unsigned label = 0; label < 256; ++label)
        flags[label] = SdiFilter[label] != 0 ? 1 : 0;
}

bool CKVX_HdwArinc429InLbloService::IsRxEnabled()
{
    CKVX_HdwServiceLock lock(*this);
    return RxEnabled;
}

bool CKVX_HdwArinc429InLbloService::StoreReceived(const CKVX_HdwArinc429Message& message, uint64_t eventTime)
{
    if (!RxEnabled || !((SdiFilter[message.Label] >> (message.Sdi & 3u)) & 1u))
        return false;
    CEntry& e = Entries[EntryIndex(message.Label, message.Sdi)];
    e.Message = message;
    e.Message.TimeStamp = eventTime;
    ++e.Count;
    e.Changed = true;
    return true;
}
