#include "Binding.h"

#include <chrono>

namespace hdwpy {

void Check(unsigned code, const char* context)
{
    if (code != 0)
        throw ResultError{code, context};
}

namespace {

// The unit instance of `port`'s unit, or null for a unit that is no
// command-protocol unit.
CKVX_HdwKvxUnitInstance* InstanceOf(CKVX_HdwPort* port)
{
    auto* unit = port ? dynamic_cast<CKVX_HdwKvxCommandUnit*>(port->GetHdwDevice()) : nullptr;
    return unit ? unit->GetUnitInstance(port->GetDeviceId()) : nullptr;
}

double MappedToWall(CKVX_HdwKvxUnitInstance* instance, const uint64_t* unitUs)
{
    // One offset from the host's monotonic clock to the wall clock for the
    // whole process: times of the same unit then keep their order, where a
    // wall time taken afresh at each call would jitter by microseconds.
    static const int64_t offsetUs = [] {
        using namespace std::chrono;
        const int64_t wall = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
        return wall - int64_t(CKVX_HdwKvxUnitInstance::HostMonotonicMicroseconds());
    }();
    uint64_t host = 0, wall = 0;
    if (!instance || !unitUs || !instance->MapUnitTime(*unitUs, host, wall))
        host = CKVX_HdwKvxUnitInstance::HostMonotonicMicroseconds();
    return double(int64_t(host) + offsetUs) / 1e6;
}

} // namespace

double StampToWall(CKVX_HdwPort* port, uint64_t stamp)
{
    CKVX_HdwKvxUnitInstance* instance = InstanceOf(port);
    if (!instance)
        return MappedToWall(nullptr, nullptr);
    const uint64_t unitUs = instance->UnwrapUnitTime(stamp);
    return MappedToWall(instance, &unitUs);
}

double UnitTimeToWall(CKVX_HdwPort* port, uint64_t unitUs)
{
    return MappedToWall(InstanceOf(port), &unitUs);
}

void BindCore(py::module_& m)
{
    // HdwError lives in pure Python (hdwlib._errors) so that it pickles and
    // subclasses like any exception; it is looked up when first raised.
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p)
                std::rethrow_exception(p);
        } catch (const ResultError& e) {
            py::object cls = py::module_::import("hdwlib._errors").attr("HdwError");
            py::object err = cls(e.Code, CKVX_HdwObject::GetResultText(e.Code), e.Context);
            PyErr_SetObject(cls.ptr(), err.ptr());
        }
    });

    m.def(
        "result_text", [](unsigned code) { return std::string(CKVX_HdwObject::GetResultText(code)); }, py::arg("code"),
        "The library's short text for a result code.");

    m.attr("ERR_NO_ACK") = unsigned(HDW_ERR_NO_ACK);
    m.attr("ERR_BUS_FAULT") = unsigned(HDW_ERR_BUS_FAULT);

    m.attr("PORT_UART") = unsigned(HDW_PORT_UART);
    m.attr("PORT_ARINC429_TX") = unsigned(HDW_PORT_ARINC429_TX);
    m.attr("PORT_ARINC429_RX") = unsigned(HDW_PORT_ARINC429_RX);
    m.attr("PORT_CAN") = unsigned(HDW_PORT_CAN);
    m.attr("PORT_MILSTD1553") = unsigned(HDW_PORT_MILSTD1553);
    m.attr("PORT_DISCRETE_IN") = unsigned(HDW_PORT_DISCRETE_IN);
    m.attr("PORT_DISCRETE_OUT") = unsigned(HDW_PORT_DISCRETE_OUT);
    m.attr("PORT_I2C") = unsigned(HDW_PORT_I2C);
    m.attr("PORT_SPI") = unsigned(HDW_PORT_SPI);

    m.attr("SIGNAL_ARINC429_RECEIVED") = unsigned(HDW_SIGNAL_ARINC429_RECEIVED);
    m.attr("SIGNAL_ARINC429_SENT") = unsigned(HDW_SIGNAL_ARINC429_SENT);
    m.attr("SIGNAL_CAN_RECEIVED") = unsigned(HDW_SIGNAL_CAN_RECEIVED);
    m.attr("SIGNAL_CAN_SENT") = unsigned(HDW_SIGNAL_CAN_SENT);
    m.attr("SIGNAL_CAN_STATUS_CHANGED") = unsigned(HDW_SIGNAL_CAN_STATUS_CHANGED);
    m.attr("SIGNAL_CAN_ERROR_REGISTER_CHANGED") = unsigned(HDW_SIGNAL_CAN_ERROR_REGISTER_CHANGED);
    m.attr("SIGNAL_DISCRETE_INPUT") = unsigned(HDW_SIGNAL_DISCRETE_INPUT);
    m.attr("SIGNAL_DISCRETE_OUTPUT") = unsigned(HDW_SIGNAL_DISCRETE_OUTPUT);
    m.attr("SIGNAL_MIL1553_MESSAGE") = unsigned(HDW_SIGNAL_MIL1553_MESSAGE);
    m.attr("SIGNAL_CAN_TRANSCEIVER_ERROR") = unsigned(HDW_SIGNAL_CAN_TRANSCEIVER_ERROR);
    m.attr("SIGNAL_UNIT_LOST") = unsigned(HDW_SIGNAL_UNIT_LOST);
    m.attr("SIGNAL_UNIT_BACK") = unsigned(HDW_SIGNAL_UNIT_BACK);
    m.attr("SIGNAL_UART_RECEIVED") = unsigned(HDW_SIGNAL_UART_RECEIVED);
    m.attr("SIGNAL_UART_SENT") = unsigned(HDW_SIGNAL_UART_SENT);
}

} // namespace hdwpy
