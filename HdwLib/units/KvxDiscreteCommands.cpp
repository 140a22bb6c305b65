// The command builders of the discrete banks (codes 36-46). Masks and states
// are 32-bit words, bit n = line n of the bank; lines beyond the bank are
// refused (2) here, before anything is attached.
#include <HdwLib/bus/HdwDiscreteInPort.h>
#include <HdwLib/bus/HdwDiscreteOutService.h>
#include <HdwLib/units/KvxCommandUnit.h>
#include <HdwLib/units/internal/KvxCommandRecord.h>

namespace {

constexpr uint8_t kWriteCode = 44;
constexpr uint8_t kPulseCode = 45;
constexpr uint8_t kReadCode = 46;

uint32_t BankLines(const CKVX_HdwKvxUnitProfile& profile)
{
    const unsigned n = profile.LinesPerBank;
    return n >= 32 ? 0xFFFFFFFFu : (1u << n) - 1u;
}

bool WithinBank(const CKVX_HdwKvxUnitProfile& profile, uint32_t bits)
{
    return (bits & ~BankLines(profile)) == 0;
}

} // namespace

// Code base + bank, 15 bytes: 4 bit 0 reporting, 5..8 invert mask, 9..12
// change mask (the bank's lines), 13..14 debounce in units of 10 µs.
unsigned CKVX_HdwKvxCommandUnit::AttachDiscreteInConfigCommand(
    unsigned instance, unsigned bank, const CKVX_HdwDiscreteInPort::CParameters& params, bool enable)
{
    CKVX_HdwKvxUnitInstance* inst =
        KvxCommandTarget(this, instance, CmdDiscreteInConfig, bank, m_Profile.DiscreteInBanks);
    if (!inst || !WithinBank(m_Profile, params.InvertMask) ||
        params.DebounceUs > CKVX_HdwDiscreteInPort::MaxDebounceUs || params.DebounceUs % 10 != 0)
        return HDW_ERR_ARGUMENT;
    uint8_t p[11];
    p[0] = enable ? 1 : 0;
    kvx_commands::PutLe32(p + 1, params.InvertMask);
    kvx_commands::PutLe32(p + 5, params.ChangeMask & BankLines(m_Profile));
    kvx_commands::PutLe16(p + 9, params.DebounceUs / 10);
    return AttachCommand(inst, uint8_t(m_Profile.DiscreteInConfigBase + bank), p, sizeof p);
}

// Code base + bank, 13 bytes: 4 bit 0 driven, 5..8 invert mask, 9..12 the
// logical state driven when switched on.
unsigned CKVX_HdwKvxCommandUnit::AttachDiscreteOutConfigCommand(
    unsigned instance, unsigned bank, const CKVX_HdwDiscreteOutPort::CParameters& params, bool enable)
{
    CKVX_HdwKvxUnitInstance* inst =
        KvxCommandTarget(this, instance, CmdDiscreteOutConfig, bank, m_Profile.DiscreteOutBanks);
    if (!inst || !WithinBank(m_Profile, params.InvertMask) || !WithinBank(m_Profile, params.InitialState))
        return HDW_ERR_ARGUMENT;
    uint8_t p[9];
    p[0] = enable ? 1 : 0;
    kvx_commands::PutLe32(p + 1, params.InvertMask);
    kvx_commands::PutLe32(p + 5, params.InitialState);
    return AttachCommand(inst, uint8_t(m_Profile.DiscreteOutConfigBase + bank), p, sizeof p);
}

// Code 44, 14 bytes: 4 bank, 5 operation, 6..9 mask, 10..13 value (write only).
unsigned CKVX_HdwKvxCommandUnit::AttachDiscreteOutWriteCommand(
    unsigned instance, unsigned bank, unsigned operation, uint32_t mask, uint32_t value)
{
    CKVX_HdwKvxUnitInstance* inst =
        KvxCommandTarget(this, instance, CmdDiscreteOutWrite, bank, m_Profile.DiscreteOutBanks);
    if (!inst || operation > DiscreteToggle || !WithinBank(m_Profile, mask) || !WithinBank(m_Profile, value))
        return HDW_ERR_ARGUMENT;
    uint8_t p[10];
    p[0] = uint8_t(bank);
    p[1] = uint8_t(operation);
    kvx_commands::PutLe32(p + 2, mask);
    kvx_commands::PutLe32(p + 6, operation == DiscreteWrite ? value : 0);
    return AttachCommand(inst, kWriteCode, p, sizeof p);
}

// Code 45, 13 bytes: 4 bank, 5..8 mask, 9..12 length in µs.
unsigned CKVX_HdwKvxCommandUnit::AttachDiscreteOutPulseCommand(
    unsigned instance, unsigned bank, uint32_t mask, uint32_t lengthUs)
{
    CKVX_HdwKvxUnitInstance* inst =
        KvxCommandTarget(this, instance, CmdDiscreteOutPulse, bank, m_Profile.DiscreteOutBanks);
    if (!inst || !WithinBank(m_Profile, mask) || lengthUs < CKVX_HdwDiscreteOutService::MinPulseUs ||
        lengthUs > CKVX_HdwDiscreteOutService::MaxPulseUs)
        return HDW_ERR_ARGUMENT;
    uint8_t p[9];
    p[0] = uint8_t(bank);
    kvx_commands::PutLe32(p + 1, mask);
    kvx_commands::PutLe32(p + 5, lengthUs);
    return AttachCommand(inst, kPulseCode, p, sizeof p);
}

// Code 46, 7 bytes: 4 input banks, 5 output banks (bit k = bank k), 6 zero.
unsigned CKVX_HdwKvxCommandUnit::AttachDiscreteReadCommand(unsigned instance, uint8_t inBanks, uint8_t outBanks)
{
    CKVX_HdwKvxUnitInstance* inst = KvxCommandTarget(this, instance, CmdDiscreteRead, 0, 1);
    const unsigned inAll = (1u << m_Profile.DiscreteInBanks) - 1u;
    const unsigned outAll = (1u << m_Profile.DiscreteOutBanks) - 1u;
    if (!inst || (inBanks & ~inAll) || (outBanks & ~outAll) || (inBanks | outBanks) == 0)
        return HDW_ERR_ARGUMENT;
    const uint8_t p[3] = {inBanks, outBanks, 0};
    return AttachCommand(inst, kReadCode, p, sizeof p);
}
