#include "Mil1553Transfer.h"

#include <cstddef>

namespace hdwsim::mil {

namespace {

// One terminal's answer as the controller hears it: adds its time to `t`
// and its flags to the attempt. False when it did not answer.
bool Hear(Responders& rs, FaultTable& faults, Command c, const std::vector<uint16_t>& received, const AttemptSpec& spec,
    Attempt& a, uint64_t& t, uint16_t& status, std::vector<uint16_t>& data)
{
    Reply r = rs.Answer(c, a.Bus, received);
    bool parity = false;
    Disturb(faults.Take(c.Address(), a.Bus), c, r, parity);
    if (!r.Responds || r.ResponseUs > spec.TimeoutUs) {
        t += uint64_t(spec.TimeoutUs) * NsPerUs;
        a.Flags |= FlagNoResponse;
        return false;
    }
    t += uint64_t(r.ResponseUs) * NsPerUs + (1 + r.Data.size()) * WordNs;
    if (parity) {
        a.Flags |= FlagParity;
    } else {
        status = r.Status;
        if (status & StatusMessageError)
            a.Flags |= FlagMessageError;
        if (status & StatusBusy)
            a.Flags |= FlagBusy;
        if (status & StatusServiceRequest)
            a.Flags |= FlagServiceRequest;
    }
    // A busy terminal or one that refuses the command sends its status only.
    const bool statusOnly = (r.Status & (StatusBusy | StatusMessageError)) != 0;
    const size_t expected = c.Transmit() && !statusOnly ? c.DataWords() : 0;
    if (r.Data.size() != expected)
        a.Flags |= FlagBadWordCount;
    data = std::move(r.Data);
    return true;
}

} // namespace

Attempt RunAttempt(Responders& rs, FaultTable& faults, const AttemptSpec& spec, uint64_t startNs)
{
    Attempt a;
    a.StartNs = startNs;
    a.Bus = spec.Bus;
    a.Command1 = spec.Command1;
    a.Command2 = spec.RtToRt ? spec.Command2 : 0;
    const Command c1{spec.Command1};
    if (spec.Bus)
        a.Flags |= FlagBusB;
    if (spec.RtToRt)
        a.Flags |= FlagRtToRt;
    if (c1.ModeCode())
        a.Flags |= FlagModeCode;
    if (c1.IsBroadcast())
        a.Flags |= FlagBroadcast;

    uint64_t t = startNs;
    std::vector<uint16_t> unused;
    if (spec.RtToRt) {
        // Receive command, transmit command, the transmitter's status and
        // data, then the receiver's status.
        t += 2 * WordNs;
        const Command tx{spec.Command2};
        if (Hear(rs, faults, tx, {}, spec, a, t, a.Status1, a.Data)) {
            if (c1.IsBroadcast())
                rs.Answer(c1, a.Bus, a.Data);
            else
                Hear(rs, faults, c1, a.Data, spec, a, t, a.Status2, unused);
        }
    } else if (c1.Transmit()) {
        t += WordNs;
        if (c1.IsBroadcast())
            rs.Answer(c1, a.Bus, {});
        else
            Hear(rs, faults, c1, {}, spec, a, t, a.Status1, a.Data);
    } else {
        a.Data = spec.BcData;
        t += (1 + a.Data.size()) * WordNs;
        if (c1.IsBroadcast())
            rs.Answer(c1, a.Bus, a.Data);
        else
            Hear(rs, faults, c1, a.Data, spec, a, t, a.Status1, unused);
    }
    a.EndNs = t;
    return a;
}

} // namespace hdwsim::mil
