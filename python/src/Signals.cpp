// hdwlib.SignalService: the port's notification queue, waited on with a
// time-out (the GIL released) or through its descriptor (select, asyncio).

#include "Binding.h"

#include <pybind11/stl.h>

#include <chrono>
#include <optional>
#include <vector>

namespace hdwpy {

namespace {

// One notification; only the member of its kind is set.
struct Signal {
    unsigned Kind = 0;
    double Time = 0.0;
    std::optional<Arinc429Word> Word;
    std::optional<CanFrame> Frame;
    uint32_t Value = 0;
    uint32_t Aux = 0;
};

Signal ToPython(const CKVX_HdwSignalService::CSignal& s)
{
    Signal out;
    out.Kind = s.Kind;
    out.Time = StampToWall(s.Port, s.TimeStamp);
    if (s.Kind == HDW_SIGNAL_ARINC429_RECEIVED || s.Kind == HDW_SIGNAL_ARINC429_SENT)
        out.Word = Arinc429Word::FromMessage(s.Arinc429, out.Time);
    if (s.Kind == HDW_SIGNAL_CAN_RECEIVED || s.Kind == HDW_SIGNAL_CAN_SENT)
        out.Frame = CanFrame::FromMessage(s.Can, out.Time);
    out.Value = s.Value;
    out.Aux = s.Aux;
    if (s.Kind >= HDW_SIGNAL_CAN_STATUS_CHANGED && s.Kind <= HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED) {
        out.Value = s.FaultStatus.Status;
        out.Aux = s.FaultStatus.ErrReg0 | (uint32_t(s.FaultStatus.ErrReg1) << 8);
    }
    return out;
}

// Waits in slices so that Ctrl-C (a pending Python signal) ends a long wait.
std::optional<Signal> Wait(CKVX_HdwSignalService& s, std::optional<double> timeout)
{
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(timeout.value_or(0));
    for (;;) {
        unsigned sliceMs = 200;
        if (timeout) {
            const double left = std::chrono::duration<double, std::milli>(end - Clock::now()).count();
            sliceMs = left <= 0 ? 0 : std::min<unsigned>(sliceMs, unsigned(left + 0.999));
        }
        CKVX_HdwSignalService::CSignal sig;
        unsigned rc = 0;
        {
            py::gil_scoped_release release;
            rc = s.WaitSignal(sig, sliceMs);
        }
        if (rc == 0)
            return ToPython(sig);
        if (rc != HDW_ERR_NOTHING_TO_READ)
            Check(rc, "wait for a signal");
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        if (timeout && Clock::now() >= end)
            return std::nullopt;
    }
}

std::vector<Signal> ReadSignals(CKVX_HdwSignalService& s, unsigned maxCount)
{
    std::vector<CKVX_HdwSignalService::CSignal> buf(maxCount ? maxCount : 1);
    unsigned n = 0;
    Check(s.ReadSignals(buf.data(), unsigned(buf.size()), n), "read the signals");
    std::vector<Signal> out;
    for (unsigned i = 0; i < n; ++i)
        out.push_back(ToPython(buf[i]));
    return out;
}

} // namespace

void BindSignals(py::module_& m)
{
    py::class_<Signal>(m, "Signal")
        .def_readonly("kind", &Signal::Kind)
        .def_readonly("time", &Signal::Time)
        .def_readonly("word", &Signal::Word)
        .def_readonly("frame", &Signal::Frame)
        .def_readonly("value", &Signal::Value)
        .def_readonly("aux", &Signal::Aux)
        .def("__repr__", [](const Signal& s) { return "<Signal kind " + std::to_string(s.Kind) + ">"; });

    using Holder = std::unique_ptr<CKVX_HdwSignalService, py::nodelete>;
    py::class_<CKVX_HdwSignalService, Holder>(m, "SignalService")
        .def("wait", &Wait, py::arg("timeout") = py::none(),
            "The oldest signal, waiting up to `timeout` seconds (None: until one comes); None on time-out.")
        .def("read", &ReadSignals, py::arg("max_count") = 256, "The signals waiting, without waiting.")
        .def("fileno", &CKVX_HdwSignalService::GetFileDescriptor,
            "A descriptor that polls readable while a signal waits; do not read or close it.")
        .def_property_readonly("pending",
            [](CKVX_HdwSignalService& s) {
                unsigned n = 0;
                Check(s.GetSignalsNumber(n), "count the signals");
                return n;
            })
        .def_property_readonly("dropped", [](CKVX_HdwSignalService& s) {
            uint64_t n = 0;
            Check(s.GetDroppedCount(n, false), "count the dropped signals");
            return n;
        });

    auto port =
        py::reinterpret_borrow<py::class_<CKVX_HdwPort, std::unique_ptr<CKVX_HdwPort, py::nodelete>>>(m.attr("Port"));
    port.def(
        "enable_signals",
        [](CKVX_HdwPort& p, std::optional<std::vector<unsigned>> kinds, uint32_t bufferSize) {
            CKVX_HdwSignalService::CParameters params;
            params.BufferSize = bufferSize;
            if (kinds) {
                params.SignalMask = 0;
                for (unsigned k : *kinds)
                    if (k >= 1 && k <= 32)
                        params.SignalMask |= 1u << (k - 1);
            }
            auto* s = EnableOn<CKVX_HdwSignalService>(p, HDW_SERVICE_SIGNAL, &params, "enable the signal service");
            if (!p.IsOpen())
                s->SetParameters(&params);
            return s;
        },
        py::arg("kinds") = py::none(), py::arg("buffer_size") = 1000, py::return_value_policy::reference,
        py::keep_alive<0, 1>());
}

} // namespace hdwpy
