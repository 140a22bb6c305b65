// hdwlib.CanFrame and the CAN receive and transmit buffers.

#include "Binding.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <vector>

namespace hdwpy {

CanFrame CanFrame::FromMessage(const CKVX_HdwCanMessage& m, double time)
{
    CanFrame f;
    f.Id = m.Identifier;
    f.Extended = m.Extended != 0;
    f.Rtr = m.Rtr != 0;
    f.Dlc = m.Dlc;
    if (!f.Rtr)
        f.Data.assign(reinterpret_cast<const char*>(m.Data), std::min<unsigned>(m.Dlc, 8));
    f.Time = time;
    return f;
}

CKVX_HdwCanMessage CanFrame::ToMessage() const
{
    CKVX_HdwCanMessage m;
    m.Identifier = Id;
    m.Extended = Extended ? 1 : 0;
    m.Rtr = Rtr ? 1 : 0;
    m.Dlc = uint8_t(Dlc);
    std::copy(Data.begin(), Data.end(), m.Data);
    return m;
}

namespace {

// `extended` None: an identifier above 0x7FF is extended. `dlc` None: the
// data length.
CanFrame MakeFrame(uint32_t id, const py::bytes& data, std::optional<bool> extended, bool rtr, double time,
    std::optional<unsigned> dlc)
{
    CanFrame f;
    f.Data = data;
    f.Extended = extended.value_or(id > 0x7FF);
    if (f.Data.size() > 8 || id > (f.Extended ? 0x1FFFFFFFu : 0x7FFu) || (dlc && *dlc > 15) ||
        (dlc && !rtr && *dlc < f.Data.size()))
        throw py::value_error(
            "CAN frame out of range: id up to 0x7FF (0x1FFFFFFF extended), up to 8 data bytes, dlc 0-15");
    f.Id = id;
    f.Rtr = rtr;
    f.Dlc = dlc.value_or(unsigned(f.Data.size()));
    f.Time = time;
    return f;
}

std::vector<CanFrame> ReadFrames(CKVX_HdwCanInBufferService& s, unsigned maxCount)
{
    std::vector<CKVX_HdwCanMessage> buf(maxCount ? maxCount : 1);
    unsigned n = 0;
    const unsigned rc = s.Read(buf.data(), unsigned(buf.size()), n);
    std::vector<CanFrame> out;
    if (rc == HDW_ERR_NOTHING_TO_READ)
        return out;
    Check(rc, "read the CAN buffer");
    for (unsigned i = 0; i < n; ++i)
        out.push_back(CanFrame::FromMessage(buf[i], StampToWall(s.GetHdwPort(), buf[i].TimeStamp)));
    return out;
}

void WriteFrames(CKVX_HdwCanOutBufferService& s, const py::iterable& frames)
{
    std::vector<CKVX_HdwCanMessage> msgs;
    for (auto f : frames)
        msgs.push_back(f.cast<CanFrame>().ToMessage());
    if (!msgs.empty())
        Check(s.Write(msgs.data(), unsigned(msgs.size()), 0), "write to the CAN buffer");
}

} // namespace

void BindCan(py::module_& m)
{
    py::class_<CanFrame>(m, "CanFrame")
        .def(py::init(&MakeFrame), py::arg("id") = 0, py::arg("data") = py::bytes(), py::arg("extended") = py::none(),
            py::arg("rtr") = false, py::arg("time") = 0.0, py::arg("dlc") = py::none())
        .def_readonly("id", &CanFrame::Id)
        .def_property_readonly("data", [](const CanFrame& f) { return py::bytes(f.Data); })
        .def_readonly("extended", &CanFrame::Extended)
        .def_readonly("rtr", &CanFrame::Rtr)
        .def_readonly("dlc", &CanFrame::Dlc)
        .def_readwrite("time", &CanFrame::Time)
        .def("__eq__",
            [](const CanFrame& a, const CanFrame& b) {
                return a.Id == b.Id && a.Extended == b.Extended && a.Rtr == b.Rtr && a.Dlc == b.Dlc && a.Data == b.Data;
            })
        .def("__repr__", [](const CanFrame& f) {
            char id[16];
            std::snprintf(id, sizeof id, f.Extended ? "%08X" : "%03X", unsigned(f.Id));
            std::string text = std::string("CanFrame(") + id + "#";
            if (f.Rtr)
                text += "R";
            for (unsigned char c : f.Data) {
                char b[4];
                std::snprintf(b, sizeof b, "%02X", c);
                text += b;
            }
            return text + ")";
        });

    using InHolder = std::unique_ptr<CKVX_HdwCanInBufferService, py::nodelete>;
    py::class_<CKVX_HdwCanInBufferService, InHolder>(m, "CanInBuffer")
        .def("read", &ReadFrames, py::arg("max_count") = 128, "The frames waiting, oldest first (up to max_count).")
        .def_property_readonly("dropped", &CKVX_HdwCanInBufferService::GetDroppedCount);

    using OutHolder = std::unique_ptr<CKVX_HdwCanOutBufferService, py::nodelete>;
    py::class_<CKVX_HdwCanOutBufferService, OutHolder>(m, "CanOutBuffer")
        .def("write", &WriteFrames, py::arg("frames"), "Queues CanFrame objects.")
        .def_property_readonly("pending", [](CKVX_HdwCanOutBufferService& s) {
            unsigned n = 0;
            Check(s.GetMessagesToBeWritten(n), "count the frames to send");
            return n;
        });

    auto port =
        py::reinterpret_borrow<py::class_<CKVX_HdwPort, std::unique_ptr<CKVX_HdwPort, py::nodelete>>>(m.attr("Port"));
    port.def(
            "enable_can_in",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwCanInBufferService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwCanInBufferService>(
                    p, HDW_SERVICE_CAN_IN_BUFFER, &params, "enable the CAN receive buffer");
            },
            py::arg("buffer_size") = 1000, py::return_value_policy::reference, py::keep_alive<0, 1>())
        .def(
            "enable_can_out",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwCanOutBufferService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwCanOutBufferService>(
                    p, HDW_SERVICE_CAN_OUT_BUFFER, &params, "enable the CAN transmit buffer");
            },
            py::arg("buffer_size") = 1000, py::return_value_policy::reference, py::keep_alive<0, 1>());
}

} // namespace hdwpy
