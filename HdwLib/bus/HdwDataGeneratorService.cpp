#include <HdwLib/bus/HdwDataGeneratorService.h>
#include <HdwLib/bus/internal/RunState.h>
#include <HdwLib/bus/internal/ServiceParameters.h>

#include <algorithm>
#include <cmath>

CKVX_HdwDataGeneratorService::CParameters::~CParameters() = default;

uint64_t CKVX_HdwDataGeneratorService::CRun::DueUs() const
{
    return OriginUs + uint64_t(std::llround(double(SinceOrigin) * 1e6 / Rate));
}

double CKVX_HdwDataGeneratorService::CRun::Seconds(double rate) const
{
    return OriginSeconds + double(SinceOrigin) / rate;
}

CKVX_HdwDataGeneratorService::CKVX_HdwDataGeneratorService(CKVX_HdwObject* port) : CKVX_HdwService(port)
{
    m_ServiceType = HDW_SERVICE_DATA_GENERATOR;
}

CKVX_HdwDataGeneratorService::~CKVX_HdwDataGeneratorService() = default;

unsigned CKVX_HdwDataGeneratorService::CheckRunning() const
{
    return hdw::bus::RunState(GetStatus());
}

void CKVX_HdwDataGeneratorService::ClearTable()
{
    std::fill(std::begin(Defined), std::end(Defined), false);
    std::fill(std::begin(Runs), std::end(Runs), CRun());
    m_Backlog.clear();
}

void CKVX_HdwDataGeneratorService::Unschedule()
{
    for (CRun& run : Runs) {
        if (!run.Scheduled)
            continue;
        run.OriginSeconds = run.Seconds(run.Rate);
        run.SinceOrigin = 0;
        run.Scheduled = false;
    }
}

unsigned CKVX_HdwDataGeneratorService::Start()
{
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    m_Generated = m_Missed = 0;
    m_Enabled = EnableOnStart != 0;
    SetStatus(HDW_SERVICE_RUNNING);
    return 0;
}

unsigned CKVX_HdwDataGeneratorService::Stop()
{
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    m_Enabled = false;
    SetStatus(HDW_SERVICE_STOPPED);
    return 0;
}

unsigned CKVX_HdwDataGeneratorService::GetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersOut(*this, params, [this](CParameters& p) { p.EnableOnStart = EnableOnStart; });
}

unsigned CKVX_HdwDataGeneratorService::SetParameters(CParameters* params)
{
    return hdw::bus::CopyParametersIn(*this, params, [this](const CParameters& p) { EnableOnStart = p.EnableOnStart; });
}

unsigned CKVX_HdwDataGeneratorService::Enable()
{
    if (const unsigned rc = CheckRunning())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    if (!m_Enabled) {
        Unschedule();
        m_Enabled = true;
    }
    return 0;
}

unsigned CKVX_HdwDataGeneratorService::Disable()
{
    if (const unsigned rc = CheckRunning())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    m_Enabled = false;
    // Dropped before they left: not generated after all.
    m_Generated -= m_Backlog.size();
    m_Backlog.clear();
    return 0;
}

unsigned CKVX_HdwDataGeneratorService::Reset()
{
    if (const unsigned rc = CheckRunning())
        return rc;
    CKVX_HdwServiceLock lock(*this);
    ClearTable();
    return 0;
}

unsigned CKVX_HdwDataGeneratorService::SetLabels(const CLabelDef* defs, unsigned int count)
{
    if (const unsigned rc = CheckRunning())
        return rc;
    if (count == 0)
        return 0;
    if (!defs || !std::all_of(defs, defs + count, [](const CLabelDef& d) { return d.IsValid(); }))
        return HDW_ERR_ARGUMENT;
    CKVX_HdwServiceLock lock(*this);
    for (unsigned i = 0; i < count; ++i) {
        const CLabelDef& d = defs[i];
        CRun& run = Runs[d.Label];
        if (!Defined[d.Label] || !d.Enabled) {
            // New, or paused: it starts at the next Generate after it is enabled.
            if (run.Scheduled)
                run.OriginSeconds = run.Seconds(run.Rate);
            run.SinceOrigin = 0;
            run.Scheduled = false;
        } else if (run.Scheduled && d.Rate != run.Rate) {
            // The transmission already due keeps its time; the new rate
            // counts from it.
            const uint64_t due = run.DueUs();
            run.OriginSeconds = run.Seconds(run.Rate);
            run.OriginUs = due;
            run.SinceOrigin = 0;
            run.Rate = d.Rate;
        } else if (!run.Scheduled) {
            run.SinceOrigin = 0;
        }
        Defs[d.Label] = d;
        Defined[d.Label] = true;
    }
    return 0;
}

void CKVX_HdwDataGeneratorService::Generate(uint64_t nowUs)
{
    if (!m_Enabled || GetStatus() != HDW_SERVICE_RUNNING)
        return;
    for (unsigned label = 0; label < 256; ++label) {
        CRun& run = Runs[label];
        if (Defined[label] && Defs[label].Enabled && !run.Scheduled) {
            run.Scheduled = true;
            run.OriginUs = nowUs;
            run.SinceOrigin = 0;
            run.Rate = Defs[label].Rate;
        }
    }
    // Every due transmission in the order of their nominal times (on equal
    // times the lower label first), while the backlog has room.
    while (m_Backlog.size() < BacklogWords) {
        unsigned next = 256;
        uint64_t nextDue = 0;
        for (unsigned label = 0; label < 256; ++label) {
            if (!Defined[label] || !Defs[label].Enabled)
                continue;
            const uint64_t due = Runs[label].DueUs();
            if (due <= nowUs && (next == 256 || due < nextDue)) {
                next = label;
                nextDue = due;
            }
        }
        if (next == 256)
            return;
        CRun& run = Runs[next];
        m_Backlog.push_back(ComputeWord(Defs[next], run.Index, run.Seconds(run.Rate), m_EvenParity));
        ++m_Generated;
        ++run.Index;
        ++run.SinceOrigin;
    }
    // The backlog is full: what is due now is skipped, counted.
    for (unsigned label = 0; label < 256; ++label) {
        if (!Defined[label] || !Defs[label].Enabled)
            continue;
        CRun& run = Runs[label];
        if (run.DueUs() > nowUs)
            continue;
        uint64_t k = uint64_t(double(nowUs - run.OriginUs) * run.Rate / 1e6);
        while (run.OriginUs + uint64_t(std::llround(double(k + 1) * 1e6 / run.Rate)) <= nowUs)
            ++k;
        while (k > run.SinceOrigin && run.OriginUs + uint64_t(std::llround(double(k) * 1e6 / run.Rate)) > nowUs)
            --k;
        // Transmissions SinceOrigin..k are due.
        const uint64_t skipped = k + 1 - run.SinceOrigin;
        m_Missed += skipped;
        run.Index += skipped;
        run.SinceOrigin += skipped;
    }
}

unsigned CKVX_HdwDataGeneratorService::TakeWords(CKVX_HdwArinc429Message* out, unsigned maxCount)
{
    const unsigned n = unsigned(std::min<size_t>(maxCount, m_Backlog.size()));
    std::copy_n(m_Backlog.begin(), n, out);
    m_Backlog.erase(m_Backlog.begin(), m_Backlog.begin() + n);
    return n;
}

unsigned CKVX_HdwDataGeneratorService::GetLabel(unsigned char label, CLabelDef& def)
{
    CKVX_HdwServiceLock lock(*this);
    if (!Defined[label])
        return HDW_ERR_NOTHING_TO_READ;
    def = Defs[label];
    return 0;
}

unsigned CKVX_HdwDataGeneratorService::GetDefinedLabelsCount()
{
    CKVX_HdwServiceLock lock(*this);
    return unsigned(std::count(std::begin(Defined), std::end(Defined), true));
}

bool CKVX_HdwDataGeneratorService::IsEnabled()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Enabled;
}

uint64_t CKVX_HdwDataGeneratorService::GetGeneratedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Generated;
}

uint64_t CKVX_HdwDataGeneratorService::GetMissedCount()
{
    CKVX_HdwServiceLock lock(*this);
    return m_Missed;
}

unsigned CKVX_HdwDataGeneratorService::GetPendingCount()
{
    CKVX_HdwServiceLock lock(*this);
    return unsigned(m_Backlog.size());
}
