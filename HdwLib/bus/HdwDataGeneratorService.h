#pragma once
// ARINC 429 data generator (service type 15): stands in for an avionics box
// on a test bench. Each label has its own rate, SDI, SSM and value pattern
// (constant, counter, BNR or BCD engineering value following a wave,
// discrete bits toggling on a period, random within limits); the generator
// sends every enabled label at its rate with the value of that moment.
//
// Schedule: every label keeps its own phase. Generate(now) produces every
// transmission whose nominal time has passed, each with the value computed
// at its nominal time, so the long-run rate is exact and the jitter is that
// of the caller's tick. Words wait in a bounded backlog until the unit
// driver takes them; a transmission that finds the backlog full is skipped
// and counted (GetMissedCount), never queued late without bound.
//
// A changed definition takes effect at the label's next transmission; a
// changed rate applies from that transmission on. Disable pauses every label
// (no catch-up afterwards), Enable resumes them at the next Generate with
// their pattern time where it stopped, Reset forgets every label.
//
// This class computes and schedules only; it takes its time from the caller
// (microseconds, any origin). A unit driver derives from it and moves the
// words to the unit. Lock rule: the table, the schedule and the backlog are
// touched only under the device lock.

#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/framework/HdwService.h>

#include <cstdint>
#include <deque>

class HDWLIB_EXPORT CKVX_HdwDataGeneratorService : public CKVX_HdwService {
public:
    enum t_Pattern : unsigned char {
        PatternConstant = 0, // Data
        PatternCounter = 1, // Min, Max, Step over the raw data field
        PatternBnr = 2, // Wave between Low and High; Range, Resolution
        PatternBcd = 3, // Wave between Low and High; Resolution, Digits
        PatternDiscrete = 4, // Data with the Mask bits inverted every other Period
        PatternRandom = 5, // uniform in Min..Max of the raw data field; Seed
    };
    enum t_Wave : unsigned char {
        WaveSine = 0, // mid + half-span x sin(2 pi t / Period)
        WaveTriangle = 1, // Low up to High over half a Period, back down over the other half
        WaveRamp = 2, // Low up to High over a Period, then back to Low at once
    };

    static constexpr double MaxRate = 1000.0; // transmissions per second of one label
    static constexpr uint32_t DataMask = 0x7FFFF; // the 19-bit data field
    static constexpr unsigned MaxBnrBits = 18; // magnitude bits beside the sign (data bit 18)
    static constexpr unsigned MaxBcdDigits = 5; // 3 + 4 x 4 bits
    static constexpr unsigned BacklogWords = 512;

    // One label's definition. The fields a pattern does not use are ignored.
    class HDWLIB_EXPORT CLabelDef : public CKVX_Object {
    public:
        CLabelDef() = default;
        explicit CLabelDef(unsigned char label, double rate = 10.0) : Label(label), Rate(rate) {}
        CLabelDef(const CLabelDef&) = default;
        CLabelDef(CLabelDef&&) = default;
        CLabelDef& operator=(const CLabelDef&) = default;
        CLabelDef& operator=(CLabelDef&&) = default;
        ~CLabelDef() override;

        // True when the generator can send it (see the checks in Validate).
        bool IsValid() const;
        // BNR: the magnitude bits N with Range = Resolution x 2^N, 1..18;
        // 0 when Range and Resolution give no such N.
        unsigned BnrBits() const;

        unsigned char Label = 0;
        unsigned char Sdi = 0; // 0..3
        unsigned char Ssm = 0; // 0..3; BCD: the SSM of values >= 0 (negative ones send 3)
        unsigned char Enabled = 1;
        unsigned char Pattern = PatternConstant;
        unsigned char Wave = WaveSine;
        double Rate = 10.0; // transmissions per second, above 0 up to MaxRate
        uint32_t Data = 0; // constant value; discrete bits at rest
        uint32_t Mask = 0; // discrete: the bits that toggle
        uint32_t Min = 0; // counter, random: lowest raw value
        uint32_t Max = DataMask; // counter, random: highest raw value
        uint32_t Step = 1; // counter: increment per transmission, 1..Max-Min+1
        uint32_t Seed = 1; // random: sequence selector
        double Range = 1024.0; // BNR: full scale; values run from -Range to Range - Resolution
        double Resolution = 1.0; // BNR, BCD: value of the least significant bit / digit
        double Low = 0.0; // BNR, BCD: lowest engineering value of the wave
        double High = 0.0; // BNR, BCD: highest engineering value of the wave
        double Period = 1.0; // wave and discrete toggle period in seconds, above 0
        unsigned char Digits = 5; // BCD: significant digits, 1..5
    };

    class HDWLIB_EXPORT CParameters : public CKVX_HdwService::CParameters {
    public:
        CParameters() = default;
        CParameters(const CParameters&) = default;
        CParameters(CParameters&&) = default;
        CParameters& operator=(const CParameters&) = default;
        CParameters& operator=(CParameters&&) = default;
        ~CParameters() override;

        // 1: generation is on after Start; 0: labels are defined first and
        // Enable starts them together.
        unsigned char EnableOnStart = 1;
    };

    explicit CKVX_HdwDataGeneratorService(CKVX_HdwObject* port);
    ~CKVX_HdwDataGeneratorService() override;

    // Empty the table and the backlog and set the run state (1 / 0).
    unsigned Start() override;
    unsigned Stop() override;

    using CKVX_HdwService::GetParameters;
    using CKVX_HdwService::SetParameters;
    virtual unsigned GetParameters(CParameters* params);
    virtual unsigned SetParameters(CParameters* params);
    // Switch generation of every label on / off; the table stays. Disable
    // also drops the backlog.
    virtual unsigned Enable();
    virtual unsigned Disable();
    // Forget every label and the backlog.
    virtual unsigned Reset();
    // Defines or redefines `count` labels. 2, changing nothing, when one of
    // them is invalid or the array is missing.
    virtual unsigned SetLabels(const CLabelDef* defs, unsigned int count);

    // ---- reads, under the device lock
    // 4 for a label not defined.
    unsigned GetLabel(unsigned char label, CLabelDef& def);
    unsigned GetDefinedLabelsCount();
    bool IsEnabled();
    // Words generated since Start (less those that Disable dropped from the
    // backlog); transmissions skipped because the backlog was full; words
    // waiting in the backlog.
    uint64_t GetGeneratedCount();
    uint64_t GetMissedCount();
    unsigned GetPendingCount();

    // ---- the engine, for the unit driver (and tests, which step the time)
    // Appends every transmission due at `nowUs` to the backlog. Caller holds
    // the device lock; the service must be running.
    void Generate(uint64_t nowUs);
    // Moves up to `maxCount` words from the front of the backlog to `out`.
    // Caller holds the device lock.
    unsigned TakeWords(CKVX_HdwArinc429Message* out, unsigned maxCount);
    // Parity of the generated words: 0 odd (default), 1 even.
    void SetEvenParity(bool even) { m_EvenParity = even; }

    // The word of transmission `index` (0 = first) at pattern time
    // `seconds`: label, SDI, SSM, data and parity. Valid definitions only.
    static CKVX_HdwArinc429Message ComputeWord(
        const CLabelDef& def, uint64_t index, double seconds, bool evenParity = false);
    // The data field of a BNR value: two's complement, sign in bit 18, the
    // `bits` magnitude bits below it, the rest zero; rounded to the nearest
    // step and clamped to the range.
    static uint32_t EncodeBnr(double value, double resolution, unsigned bits);
    // The data field of a BCD value of `digits` digits (the first one of
    // three bits), left-aligned; the magnitude is rounded to the nearest
    // step and clamped to the largest the digits hold.
    static uint32_t EncodeBcd(double value, double resolution, unsigned digits);
    // The random pattern's raw value of transmission `index`.
    static uint32_t RandomValue(uint32_t seed, unsigned char label, uint64_t index, uint32_t min, uint32_t max);

protected:
    // The checks every operation makes first: 29 stopped, 15 failed.
    unsigned CheckRunning() const;
    // Forgets every label, the backlog and the schedule. Caller holds the lock.
    void ClearTable();
    // Every label starts over at the next Generate. Caller holds the lock.
    void Unschedule();

    // A label's place in its schedule.
    struct CRun {
        bool Scheduled = false; // false: the next Generate sends it at once
        uint64_t Index = 0; // transmissions so far (the next one's index)
        uint64_t OriginUs = 0; // time of the first transmission at the current rate
        uint64_t SinceOrigin = 0;
        double OriginSeconds = 0.0; // pattern time at OriginUs
        uint64_t DueUs() const;
        double Seconds(double rate) const;
        double Rate = 0.0;
    };

    unsigned char EnableOnStart = 1;
    bool m_Enabled = false;
    bool m_EvenParity = false;
    bool Defined[256] = {};
    CLabelDef Defs[256];
    CRun Runs[256];
    std::deque<CKVX_HdwArinc429Message> m_Backlog;
    uint64_t m_Generated = 0;
    uint64_t m_Missed = 0;
};
