// hdwlib.UartInBuffer and hdwlib.UartOutBuffer: the byte input and output
// services of a UART port.

#include "Binding.h"

#include <string>
#include <vector>

namespace hdwpy {

namespace {

// The byte services also carry streams in ARINC 429 words and CAN frames,
// with parameters of their own: only UART ports are served here.
void RequireUart(CKVX_HdwPort& port)
{
    if (port.GetPortType() != HDW_PORT_UART)
        throw py::type_error("UART byte buffers are enabled on a UART port only");
}

py::bytes ReadBytes(CKVX_HdwByteInBufferService& s, unsigned maxCount)
{
    std::string buf(maxCount ? maxCount : 1, '\0');
    unsigned n = 0;
    const unsigned rc = s.Read(reinterpret_cast<unsigned char*>(buf.data()), unsigned(buf.size()), n);
    if (rc == HDW_ERR_NOTHING_TO_READ)
        return py::bytes();
    Check(rc, "read the UART buffer");
    buf.resize(n);
    return py::bytes(buf);
}

// Bytes-like objects and iterables of ints 0..255, as bytes() takes them.
std::string BytesOf(const py::object& data)
{
    if (py::isinstance<py::str>(data))
        throw py::type_error("bytes to send, not a str: encode it first");
    PyObject* b = PyBytes_FromObject(data.ptr());
    if (!b)
        throw py::error_already_set();
    return py::reinterpret_steal<py::bytes>(b);
}

void WriteBytes(CKVX_HdwByteOutBufferService& s, const py::object& data)
{
    const std::string copy = BytesOf(data);
    if (copy.empty())
        return;
    std::vector<unsigned char> bytes(copy.begin(), copy.end());
    Check(s.Write(bytes.data(), unsigned(bytes.size()), 0), "write to the UART buffer");
}

} // namespace

void BindBytes(py::module_& m)
{
    using InHolder = std::unique_ptr<CKVX_HdwByteInBufferService, py::nodelete>;
    py::class_<CKVX_HdwByteInBufferService, InHolder>(m, "UartInBuffer")
        .def("read", &ReadBytes, py::arg("max_count") = 65536,
            "The bytes received, oldest first (up to max_count); b\"\" when none wait.")
        .def_property_readonly("waiting",
            [](CKVX_HdwByteInBufferService& s) {
                unsigned n = 0;
                Check(s.GetReadBufferBytes(n), "count the bytes received");
                return n;
            })
        .def("reset", [](CKVX_HdwByteInBufferService& s) { Check(s.ResetReadBuffer(), "empty the UART buffer"); })
        .def_property_readonly("dropped", &CKVX_HdwByteInBufferService::GetDroppedCount);

    using OutHolder = std::unique_ptr<CKVX_HdwByteOutBufferService, py::nodelete>;
    py::class_<CKVX_HdwByteOutBufferService, OutHolder>(m, "UartOutBuffer")
        .def("write", &WriteBytes, py::arg("data"),
            "Queues bytes (any bytes-like object); all of them or, when they do not fit the buffer, none (HdwError 2).")
        .def_property_readonly("pending",
            [](CKVX_HdwByteOutBufferService& s) {
                unsigned n = 0;
                Check(s.GetBytesToBeWritten(n), "count the bytes to send");
                return n;
            })
        .def("reset", [](CKVX_HdwByteOutBufferService& s) { Check(s.ResetWriteBuffer(), "empty the UART buffer"); })
        .def_property_readonly("unplaced", &CKVX_HdwByteOutBufferService::GetUnplacedCount);

    auto port =
        py::reinterpret_borrow<py::class_<CKVX_HdwPort, std::unique_ptr<CKVX_HdwPort, py::nodelete>>>(m.attr("Port"));
    port.def(
            "enable_uart_in",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                RequireUart(p);
                CKVX_HdwByteInBufferService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwByteInBufferService>(
                    p, HDW_SERVICE_BYTE_IN_BUFFER, &params, "enable the UART receive buffer");
            },
            py::arg("buffer_size") = 65536, py::return_value_policy::reference, py::keep_alive<0, 1>())
        .def(
            "enable_uart_out",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                RequireUart(p);
                CKVX_HdwByteOutBufferService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwByteOutBufferService>(
                    p, HDW_SERVICE_BYTE_OUT_BUFFER, &params, "enable the UART transmit buffer");
            },
            py::arg("buffer_size") = 65536, py::return_value_policy::reference, py::keep_alive<0, 1>());
}

} // namespace hdwpy
