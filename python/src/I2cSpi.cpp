// hdwlib.I2cTransfer, hdwlib.SpiTransfer and the I2C and SPI master
// services (Wendal). transfer() waits for its result with the GIL released
// and raises HdwError for a result other than 0, the transfer's record in
// the error's `transfer`; submit() and read_results() return the records
// with their results as they are.

#include "Binding.h"

#include <pybind11/stl.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace hdwpy {

namespace {

std::string BytesOf(const CKVX_Uint8Vector& v)
{
    return std::string(reinterpret_cast<const char*>(v.GetData()), v.GetLength());
}

CKVX_Uint8Vector VectorOf(const py::object& data)
{
    if (py::isinstance<py::str>(data))
        throw py::type_error("bytes to send, not a str: encode it first");
    PyObject* b = PyBytes_FromObject(data.ptr());
    if (!b)
        throw py::error_already_set();
    const std::string s = py::reinterpret_steal<py::bytes>(b);
    return CKVX_Uint8Vector(reinterpret_cast<const uint8_t*>(s.data()), unsigned(s.size()));
}

// Milliseconds of a time-out in seconds, at least 1.
unsigned WaitMs(double timeout)
{
    if (!(timeout > 0))
        throw py::value_error("timeout is a number of seconds above 0");
    return unsigned(std::min(timeout * 1000.0 + 0.999, 4.0e9));
}

struct I2cTransfer {
    unsigned Address = 0;
    bool TenBit = false;
    std::string Write;
    uint32_t ReadLength = 0;
    uint32_t Tag = 0;
    unsigned Result = 0;
    unsigned Fault = 0;
    uint32_t Acked = 0;
    std::string Data;
    bool NackOnAddress = false;
    double Time = 0.0;

    static I2cTransfer From(CKVX_HdwPort* port, const CKVX_HdwI2cTransfer& t)
    {
        return {t.Address, t.TenBit, BytesOf(t.Write), t.ReadLength, t.Tag, t.Result, t.Fault, t.Acked, BytesOf(t.Read),
            t.NackOnAddress, t.TimeStamp ? UnitTimeToWall(port, t.TimeStamp) : 0.0};
    }
};

struct SpiTransfer {
    std::optional<unsigned> ChipSelect; // none: the port's default
    std::string Out;
    bool KeepSelected = false;
    uint32_t Tag = 0;
    unsigned Result = 0;
    std::string Data;
    double Time = 0.0;

    static SpiTransfer From(CKVX_HdwPort* port, const CKVX_HdwSpiTransfer& t)
    {
        const auto cs =
            t.ChipSelect == CKVX_HdwSpiTransfer::PortChipSelect ? std::nullopt : std::optional<unsigned>(t.ChipSelect);
        return {cs, BytesOf(t.Out), t.KeepSelected, t.Tag, t.Result, BytesOf(t.In),
            t.TimeStamp ? UnitTimeToWall(port, t.TimeStamp) : 0.0};
    }
};

// HdwError for `code`, with the transfer's record as its `transfer`.
template <class R>
[[noreturn]] void RaiseWith(unsigned code, const char* context, const R& record)
{
    py::object cls = py::module_::import("hdwlib._errors").attr("HdwError");
    py::object err = cls(code, CKVX_HdwObject::GetResultText(code), context);
    err.attr("transfer") = py::cast(record);
    PyErr_SetObject(cls.ptr(), err.ptr());
    throw py::error_already_set();
}

CKVX_HdwI2cTransfer MakeI2c(unsigned address, const py::object& write, uint32_t read, bool tenBit, uint32_t tag)
{
    CKVX_HdwI2cTransfer t;
    if (address > (tenBit ? 0x3FFu : 0x7Fu))
        throw py::value_error("I2C address out of range: 0x00-0x7F, 0x000-0x3FF with ten_bit");
    t.Address = uint16_t(address);
    t.TenBit = tenBit;
    t.Write = VectorOf(write);
    t.ReadLength = read;
    t.Tag = tag;
    return t;
}

CKVX_HdwSpiTransfer MakeSpi(const py::object& out, std::optional<unsigned> chipSelect, bool keepSelected, uint32_t tag)
{
    CKVX_HdwSpiTransfer t;
    if (chipSelect && *chipSelect >= CKVX_HdwSpiTransfer::PortChipSelect)
        throw py::value_error("SPI chip select out of range");
    t.ChipSelect = chipSelect ? uint8_t(*chipSelect) : CKVX_HdwSpiTransfer::PortChipSelect;
    t.Out = VectorOf(out);
    t.KeepSelected = keepSelected;
    t.Tag = tag;
    return t;
}

// Submit and wait, the GIL released; a result other than 0 raises.
template <class S, class T, class R>
R TransferAndWait(S& s, T& t, double timeout, const char* context)
{
    const unsigned waitMs = WaitMs(timeout);
    unsigned rc = 0;
    {
        py::gil_scoped_release release;
        rc = s.Transfer(t, waitMs);
    }
    const R record = R::From(s.GetHdwPort(), t);
    if (rc != 0)
        RaiseWith(rc, context, record);
    return record;
}

template <class S, class T, class R>
std::vector<R> ReadResults(S& s, unsigned maxCount)
{
    std::vector<R> out;
    for (unsigned i = 0; i < maxCount; ++i) {
        T t;
        const unsigned rc = s.ReadResult(t);
        if (rc == HDW_ERR_NOTHING_TO_READ)
            break;
        Check(rc, "read a transfer's result");
        out.push_back(R::From(s.GetHdwPort(), t));
    }
    return out;
}

template <class S>
unsigned Count(S& s, unsigned (S::*get)(unsigned&), const char* context)
{
    unsigned n = 0;
    Check((s.*get)(n), context);
    return n;
}

} // namespace

void BindI2cSpi(py::module_& m)
{
    py::class_<I2cTransfer>(m, "I2cTransfer")
        .def_readonly("address", &I2cTransfer::Address)
        .def_readonly("ten_bit", &I2cTransfer::TenBit)
        .def_property_readonly("write", [](const I2cTransfer& t) { return py::bytes(t.Write); })
        .def_readonly("read_length", &I2cTransfer::ReadLength)
        .def_readonly("tag", &I2cTransfer::Tag)
        .def_readonly("result", &I2cTransfer::Result)
        .def_readonly("fault", &I2cTransfer::Fault)
        .def_readonly("acked", &I2cTransfer::Acked)
        .def_property_readonly("data", [](const I2cTransfer& t) { return py::bytes(t.Data); })
        .def_readonly("nack_on_address", &I2cTransfer::NackOnAddress)
        .def_readonly("time", &I2cTransfer::Time)
        .def("__repr__", [](const I2cTransfer& t) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "<I2cTransfer address 0x%02X result %u>", t.Address, t.Result);
            return std::string(buf);
        });

    py::class_<SpiTransfer>(m, "SpiTransfer")
        .def_readonly("chip_select", &SpiTransfer::ChipSelect)
        .def_property_readonly("out", [](const SpiTransfer& t) { return py::bytes(t.Out); })
        .def_readonly("keep_selected", &SpiTransfer::KeepSelected)
        .def_readonly("tag", &SpiTransfer::Tag)
        .def_readonly("result", &SpiTransfer::Result)
        .def_property_readonly("data", [](const SpiTransfer& t) { return py::bytes(t.Data); })
        .def_readonly("time", &SpiTransfer::Time)
        .def("__repr__", [](const SpiTransfer& t) {
            return "<SpiTransfer cs " + (t.ChipSelect ? std::to_string(*t.ChipSelect) : std::string("default")) +
                " result " + std::to_string(t.Result) + ">";
        });

    using I2cHolder = std::unique_ptr<CKVX_HdwI2cMasterService, py::nodelete>;
    py::class_<CKVX_HdwI2cMasterService, I2cHolder>(m, "I2cMaster")
        .def(
            "transfer",
            [](CKVX_HdwI2cMasterService& s, unsigned address, const py::object& write, uint32_t read, bool tenBit,
                double timeout) {
                CKVX_HdwI2cTransfer t = MakeI2c(address, write, read, tenBit, 0);
                return TransferAndWait<CKVX_HdwI2cMasterService, CKVX_HdwI2cTransfer, I2cTransfer>(
                    s, t, timeout, "I2C transfer");
            },
            py::arg("address"), py::arg("write") = py::bytes(), py::arg("read") = 0, py::arg("ten_bit") = false,
            py::arg("timeout") = 5.0,
            "Writes, then reads `read` bytes after a repeated start; waits for the result (HdwError when not 0).")
        .def(
            "submit",
            [](CKVX_HdwI2cMasterService& s, unsigned address, const py::object& write, uint32_t read, bool tenBit,
                uint32_t tag) {
                CKVX_HdwI2cTransfer t = MakeI2c(address, write, read, tenBit, tag);
                Check(s.Submit(t), "submit an I2C transfer");
            },
            py::arg("address"), py::arg("write") = py::bytes(), py::arg("read") = 0, py::arg("ten_bit") = false,
            py::arg("tag") = 0)
        .def("read_results", &ReadResults<CKVX_HdwI2cMasterService, CKVX_HdwI2cTransfer, I2cTransfer>,
            py::arg("max_count") = 64, "Finished transfers in submission order, each with its result.")
        .def_property_readonly("pending",
            [](CKVX_HdwI2cMasterService& s) {
                return Count(s, &CKVX_HdwI2cMasterService::GetPendingCount, "count the transfers");
            })
        .def_property_readonly("results_waiting", [](CKVX_HdwI2cMasterService& s) {
            return Count(s, &CKVX_HdwI2cMasterService::GetResultCount, "count the results");
        });

    using SpiHolder = std::unique_ptr<CKVX_HdwSpiMasterService, py::nodelete>;
    py::class_<CKVX_HdwSpiMasterService, SpiHolder>(m, "SpiMaster")
        .def(
            "transfer",
            [](CKVX_HdwSpiMasterService& s, const py::object& data, std::optional<unsigned> chipSelect,
                bool keepSelected, double timeout) {
                CKVX_HdwSpiTransfer t = MakeSpi(data, chipSelect, keepSelected, 0);
                return TransferAndWait<CKVX_HdwSpiMasterService, CKVX_HdwSpiTransfer, SpiTransfer>(
                    s, t, timeout, "SPI transfer");
            },
            py::arg("data"), py::arg("chip_select") = py::none(), py::arg("keep_selected") = false,
            py::arg("timeout") = 5.0,
            "Shifts `data` out while as many bytes come in; waits for the result (HdwError when not 0).")
        .def(
            "submit",
            [](CKVX_HdwSpiMasterService& s, const py::object& data, std::optional<unsigned> chipSelect,
                bool keepSelected, uint32_t tag) {
                CKVX_HdwSpiTransfer t = MakeSpi(data, chipSelect, keepSelected, tag);
                Check(s.Submit(t), "submit an SPI transfer");
            },
            py::arg("data"), py::arg("chip_select") = py::none(), py::arg("keep_selected") = false, py::arg("tag") = 0)
        .def("read_results", &ReadResults<CKVX_HdwSpiMasterService, CKVX_HdwSpiTransfer, SpiTransfer>,
            py::arg("max_count") = 64, "Finished transfers in submission order, each with its result.")
        .def_property_readonly("pending",
            [](CKVX_HdwSpiMasterService& s) {
                return Count(s, &CKVX_HdwSpiMasterService::GetPendingCount, "count the transfers");
            })
        .def_property_readonly("results_waiting", [](CKVX_HdwSpiMasterService& s) {
            return Count(s, &CKVX_HdwSpiMasterService::GetResultCount, "count the results");
        });

    auto port =
        py::reinterpret_borrow<py::class_<CKVX_HdwPort, std::unique_ptr<CKVX_HdwPort, py::nodelete>>>(m.attr("Port"));
    port.def(
            "enable_i2c",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwI2cMasterService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwI2cMasterService>(
                    p, HDW_SERVICE_I2C_MASTER, &params, "enable the I2C master service");
            },
            py::arg("buffer_size") = 64, py::return_value_policy::reference, py::keep_alive<0, 1>())
        .def(
            "enable_spi",
            [](CKVX_HdwPort& p, uint32_t bufferSize) {
                CKVX_HdwSpiMasterService::CParameters params;
                params.BufferSize = bufferSize;
                return EnableOn<CKVX_HdwSpiMasterService>(
                    p, HDW_SERVICE_SPI_MASTER, &params, "enable the SPI master service");
            },
            py::arg("buffer_size") = 64, py::return_value_policy::reference, py::keep_alive<0, 1>());
}

} // namespace hdwpy
