// hdwlib.Arinc429Word and the ARINC 429 receive and transmit buffers.

#include "Binding.h"

#include <pybind11/stl.h>

#include <bit>
#include <vector>

namespace hdwpy {

uint32_t Arinc429Word::Raw() const
{
    const uint32_t low = Label | (Sdi << 8) | (Data << 10) | (Ssm << 29);
    // Odd parity over all 32 bits when ParityOk, even otherwise.
    const bool oddWithout = std::popcount(low) % 2 == 1;
    const bool parityBit = ParityOk ? !oddWithout : oddWithout;
    return low | (uint32_t(parityBit) << 31);
}

Arinc429Word Arinc429Word::FromRaw(uint32_t raw, double time)
{
    CKVX_HdwArinc429Message m;
    m.SetFromUint32(raw);
    return FromMessage(m, time);
}

Arinc429Word Arinc429Word::FromMessage(const CKVX_HdwArinc429Message& m, double time)
{
    Arinc429Word w;
    w.Label = m.Label;
    w.Sdi = m.Sdi;
    w.Data = m.Data;
    w.Ssm = m.Ssm;
    w.ParityOk = std::popcount(uint32_t(m.GetToUint32())) % 2 == 1;
    w.Time = time;
    return w;
}

CKVX_HdwArinc429Message Arinc429Word::ToMessage() const
{
    CKVX_HdwArinc429Message m;
    m.SetFromUint32(Raw());
    return m;
}

namespace {

Arinc429Word MakeWord(unsigned label, unsigned sdi, uint32_t data, unsigned ssm, bool parityOk, double time)
{
    if (label > 0xFF || sdi > 3 || ssm > 3 || data > 0x7FFFF)
        throw py::value_error("ARINC 429 word out of range: label 0-255, sdi 0-3, data 0-0x7FFFF, ssm 0-3");
    return Arinc429Word{label, sdi, data, ssm, parityOk, time};
}

std::vector<Arinc429Word> ReadWords(CKVX_HdwArinc429InBufferService& s, unsigned maxCount)
{
    std::vector<CKVX_HdwArinc429Message> buf(maxCount ? maxCount : 1);
    unsigned n = 0;
    const unsigned rc = s.Read(buf.data(), unsigned(buf.size()), n);
    std::vector<Arinc429Word> out;
    if (rc == HDW_ERR_NOTHING_TO_READ)
        return out;
    Check(rc, "read the ARINC 429 buffer");
    for (unsigned i = 0; i < n; ++i)
        out.push_back(Arinc429Word::FromMessage(buf[i], StampToWall(s.GetHdwPort(), buf[i].TimeStamp)));
    return out;
}

// Words or raw 32-bit values.
void WriteWords(CKVX_HdwArinc429OutBufferService& s, const py::iterable& words)
{
    std::vector<CKVX_HdwArinc429Message> msgs;
    for (auto w : words)
        msgs.push_back(py::isinstance<py::int_>(w) ? Arinc429Word::FromRaw(w.cast<uint32_t>(), 0).ToMessage()
                                                   : w.cast<Arinc429Word>().ToMessage());
    if (!msgs.empty())
        Check(s.Write(msgs.data(), unsigned(msgs.size()), 0), "write to the ARINC 429 buffer");
}

} // namespace

void BindArinc429(py::module_& m)
{
    py::class_<Arinc429Word>(m, "Arinc429Word")
        .def(py::init(&MakeWord), py::arg("label") = 0, py::arg("sdi") = 0, py::arg("data") = 0, py::arg("ssm") = 0,
            py::arg("parity_ok") = true, py::arg("time") = 0.0)
        .def_static("from_raw", &Arinc429Word::FromRaw, py::arg("raw"), py::arg("time") = 0.0)
        .def_readwrite("label", &Arinc429Word::Label)
        .def_readwrite("sdi", &Arinc429Word::Sdi)
        .def_readwrite("data", &Arinc429Word::Data)
        .def_readwrite("ssm", &Arinc429Word::Ssm)
        .def_readwrite("parity_ok", &Arinc429Word::ParityOk)
        .def_readwrite("time", &Arinc429Word::Time)
        .def_property_readonly("raw", &Arinc429Word::Raw)
        .def("__int__", &Arinc429Word::Raw)
        .def("__eq__", [](const Arinc429Word& a, const Arinc429Word& b) { return a.Raw() == b.Raw(); })
        .def("__repr__", [](const Arinc429Word& w) {
            char buf[128];
            std::snprintf(buf, sizeof buf, "Arinc429Word(label=0o%03o, sdi=%u, data=0x%05X, ssm=%u, parity_ok=%s)",
                w.Label, w.Sdi, unsigned(w.Data), w.Ssm, w.ParityOk ? "True" : "False");
            return std::string(buf);
        });

    using InHolder = std::unique_ptr<CKVX_HdwArinc429InBufferService, py::nodelete>;
    py::class_<CKVX_HdwArinc429InBufferService, InHolder>(m, "Arinc429InBuffer")
        .def("read", &ReadWords, py::arg("max_count") = 256, "The words waiting, oldest first (up to max_count).")
        .def(
            "accept",
            [](CKVX_HdwArinc429InBufferService& s, unsigned label, unsigned sdiMask, unsigned ssmMask) {
                Check(s.AcceptMessage(uint8_t(label), uint8_t(sdiMask), uint8_t(ssmMask)), "accept a label");
            },
            py::arg("label"), py::arg("sdi_mask") = 0x0F, py::arg("ssm_mask") = 0x0F)
        .def(
            "discard",
            [](CKVX_HdwArinc429InBufferService& s, unsigned label) {
                Check(s.DiscardMessage(uint8_t(label)), "discard a label");
            },
            py::arg("label"))
        .def("accept_all", [](CKVX_HdwArinc429InBufferService& s) { Check(s.AcceptAllMessages(), "accept all"); })
        .def("discard_all", [](CKVX_HdwArinc429InBufferService& s) { Check(s.DiscardAllMessages(), "discard all"); })
        .def_property_readonly("dropped", &CKVX_HdwArinc429InBufferService::GetDroppedCount);

    using OutHolder = std::unique_ptr<CKVX_HdwArinc429OutBufferService, py::nodelete>;
    py::class_<CKVX_HdwArinc429OutBufferService, OutHolder>(m, "Arinc429OutBuffer")
        .def("write", &WriteWords, py::arg("words"), "Queues words (Arinc429Word or raw 32-bit values).")
        .def_property_readonly("pending", [](CKVX_HdwArinc429OutBufferService& s) {
            unsigned n = 0;
            Check(s.GetMessagesToBeWritten(n), "count the words to send");
            return n;
        });

    auto port =
        py::reinterpret_borrow<py::class_<CKVX_HdwPort, std::unique_ptr<CKVX_HdwPort, py::nodelete>>>(m.attr("Port"));
    port.def(
            "enable_arinc429_in",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwArinc429InBufferService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwArinc429InBufferService>(
                    p, HDW_SERVICE_ARINC429_IN_BUFFER, &params, "enable the ARINC 429 receive buffer");
            },
            py::arg("buffer_size") = 0, py::return_value_policy::reference, py::keep_alive<0, 1>())
        .def(
            "enable_arinc429_out",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwArinc429OutBufferService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwArinc429OutBufferService>(
                    p, HDW_SERVICE_ARINC429_OUT_BUFFER, &params, "enable the ARINC 429 transmit buffer");
            },
            py::arg("buffer_size") = 1000, py::return_value_policy::reference, py::keep_alive<0, 1>());
}

} // namespace hdwpy
