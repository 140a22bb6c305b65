// hdwlib.DiscreteChange and the discrete input and output services of a
// bank (Travin).

#include "Binding.h"

#include <pybind11/stl.h>

#include <tuple>
#include <vector>

namespace hdwpy {

namespace {

// One change of an input bank as Python sees it: `Time` host epoch seconds,
// `UnitTime` the unit's own microseconds (unwrapped) for exact differences.
struct DiscreteChange {
    uint32_t State = 0;
    uint32_t Changed = 0;
    uint32_t Lost = 0;
    double Time = 0.0;
    uint64_t UnitTime = 0;
};

std::vector<DiscreteChange> ReadChanges(CKVX_HdwDiscreteInService& s, unsigned maxCount)
{
    std::vector<CKVX_HdwDiscreteInService::CChange> buf(maxCount ? maxCount : 1);
    unsigned n = 0;
    const unsigned rc = s.Read(buf.data(), unsigned(buf.size()), n);
    std::vector<DiscreteChange> out;
    if (rc == HDW_ERR_NOTHING_TO_READ)
        return out;
    Check(rc, "read the discrete changes");
    for (unsigned i = 0; i < n; ++i)
        out.push_back({buf[i].State, buf[i].Changed, buf[i].Lost, UnitTimeToWall(s.GetHdwPort(), buf[i].TimeStamp),
            buf[i].TimeStamp});
    return out;
}

std::tuple<uint32_t, double> InputState(CKVX_HdwDiscreteInService& s)
{
    uint32_t state = 0;
    uint64_t time = 0;
    Check(s.GetState(state, time), "read the input state");
    return {state, UnitTimeToWall(s.GetHdwPort(), time)};
}

std::tuple<uint32_t, double> DrivenState(CKVX_HdwDiscreteOutService& s)
{
    uint32_t state = 0;
    uint64_t time = 0;
    Check(s.GetDriven(state, time), "read the driven state");
    return {state, UnitTimeToWall(s.GetHdwPort(), time)};
}

} // namespace

void BindDiscrete(py::module_& m)
{
    py::class_<DiscreteChange>(m, "DiscreteChange")
        .def_readonly("state", &DiscreteChange::State)
        .def_readonly("changed", &DiscreteChange::Changed)
        .def_readonly("lost", &DiscreteChange::Lost)
        .def_readonly("time", &DiscreteChange::Time)
        .def_readonly("unit_time", &DiscreteChange::UnitTime)
        .def("__repr__", [](const DiscreteChange& c) {
            char buf[96];
            std::snprintf(buf, sizeof buf, "DiscreteChange(state=0x%02X, changed=0x%02X, lost=%u)", unsigned(c.State),
                unsigned(c.Changed), unsigned(c.Lost));
            return std::string(buf);
        });

    using InHolder = std::unique_ptr<CKVX_HdwDiscreteInService, py::nodelete>;
    py::class_<CKVX_HdwDiscreteInService, InHolder>(m, "DiscreteIn")
        .def("read", &ReadChanges, py::arg("max_count") = 256, "The changes waiting, oldest first (up to max_count).")
        .def_property_readonly(
            "state", [](CKVX_HdwDiscreteInService& s) { return std::get<0>(InputState(s)); },
            "All lines as the unit last reported them (HdwError 4 before its first report).")
        .def("get_state", &InputState, "(state, time) of the last report.")
        .def(
            "input",
            [](CKVX_HdwDiscreteInService& s, unsigned line) {
                bool level = false;
                Check(s.GetInput(line, level), "read an input line");
                return level;
            },
            py::arg("line"))
        .def("refresh", [](CKVX_HdwDiscreteInService& s) { Check(s.Refresh(), "ask for the input state"); })
        .def_property_readonly("pending",
            [](CKVX_HdwDiscreteInService& s) {
                unsigned n = 0;
                Check(s.GetChangeCount(n), "count the changes");
                return n;
            })
        .def("reset", [](CKVX_HdwDiscreteInService& s) { Check(s.ResetChanges(), "drop the changes"); })
        .def_property_readonly("lost", [](CKVX_HdwDiscreteInService& s) {
            uint64_t n = 0;
            Check(s.GetLostCount(n), "count the lost changes");
            return n;
        });

    using OutHolder = std::unique_ptr<CKVX_HdwDiscreteOutService, py::nodelete>;
    py::class_<CKVX_HdwDiscreteOutService, OutHolder>(m, "DiscreteOut")
        .def(
            "set", [](CKVX_HdwDiscreteOutService& s, uint32_t mask) { Check(s.Set(mask), "set outputs"); },
            py::arg("mask"))
        .def(
            "clear", [](CKVX_HdwDiscreteOutService& s, uint32_t mask) { Check(s.Clear(mask), "clear outputs"); },
            py::arg("mask"))
        .def(
            "toggle", [](CKVX_HdwDiscreteOutService& s, uint32_t mask) { Check(s.Toggle(mask), "toggle outputs"); },
            py::arg("mask"))
        .def(
            "write",
            [](CKVX_HdwDiscreteOutService& s, uint32_t state) { Check(s.WriteAll(state), "write the outputs"); },
            py::arg("state"))
        .def(
            "pulse",
            [](CKVX_HdwDiscreteOutService& s, uint32_t mask, uint32_t lengthUs) {
                Check(s.Pulse(mask, lengthUs), "pulse outputs");
            },
            py::arg("mask"), py::arg("length_us"))
        .def("refresh", [](CKVX_HdwDiscreteOutService& s) { Check(s.Refresh(), "ask for the driven state"); })
        .def_property_readonly(
            "driven", [](CKVX_HdwDiscreteOutService& s) { return std::get<0>(DrivenState(s)); },
            "What the unit last reported driving (HdwError 4 before its first report).")
        .def("get_driven", &DrivenState, "(state, time) of the last read-back.")
        .def_property_readonly("commanded",
            [](CKVX_HdwDiscreteOutService& s) {
                uint32_t state = 0;
                Check(s.GetCommanded(state), "read the commanded state");
                return state;
            })
        .def_property_readonly("lost", [](CKVX_HdwDiscreteOutService& s) {
            uint64_t n = 0;
            Check(s.GetLostCount(n), "count the lost read-backs");
            return n;
        });

    auto port =
        py::reinterpret_borrow<py::class_<CKVX_HdwPort, std::unique_ptr<CKVX_HdwPort, py::nodelete>>>(m.attr("Port"));
    port.def_property_readonly("line_count",
            [](CKVX_HdwPort& p) -> py::object {
                auto* bank = dynamic_cast<CKVX_HdwDiscretePort*>(&p);
                return bank ? py::object(py::int_(bank->GetLineCount())) : py::object(py::none());
            })
        .def(
            "enable_discrete_in",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwDiscreteInService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwDiscreteInService>(
                    p, HDW_SERVICE_DISCRETE_IN, &params, "enable the discrete input service");
            },
            py::arg("buffer_size") = 4096, py::return_value_policy::reference, py::keep_alive<0, 1>())
        .def(
            "enable_discrete_out",
            [](CKVX_HdwPort& p) {
                CKVX_HdwDiscreteOutService::CParameters params;
                return EnableOn<CKVX_HdwDiscreteOutService>(
                    p, HDW_SERVICE_DISCRETE_OUT, &params, "enable the discrete output service");
            },
            py::return_value_policy::reference, py::keep_alive<0, 1>());
}

} // namespace hdwpy
