// hdwlib.Manager (drivers by name, enumeration, ports by name, number or
// key) and hdwlib.Port (open with keyword parameters, close).

#include "Binding.h"

#include <Names.h>

#include <pybind11/stl.h>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

namespace hdwpy {

namespace {

const hdwnames::Driver* DriverFor(const py::handle& nameOrCode)
{
    const hdwnames::Driver* d = py::isinstance<py::str>(nameOrCode)
        ? hdwnames::DriverNamed(nameOrCode.cast<std::string>())
        : hdwnames::DriverWithCode(nameOrCode.cast<uint64_t>());
    if (!d)
        throw py::value_error(
            "no driver " + py::str(nameOrCode).cast<std::string>() + " (" + hdwnames::DriverList() + ")");
    return d;
}

std::string TypeName(unsigned type)
{
    return hdwnames::PortTypeName(type);
}

unsigned TypeNamed(const std::string& name)
{
    if (const unsigned type = hdwnames::PortTypeNamed(name))
        return type;
    throw py::value_error("unknown port type \"" + name + "\" (" + hdwnames::PortTypeList() + ")");
}

// What Manager.ports reports of one port.
struct PortInfo {
    std::string Name;
    unsigned Type = 0;
    unsigned AbsNum = 0;
    uint64_t DeviceCode = 0;
    unsigned DeviceInstance = 0;
    std::string ChannelId, Manufacturer, Model, Revision, Serial, Link, Description, Key;
};

class Manager {
public:
    ~Manager()
    {
        py::gil_scoped_release release;
        m_Manager.Stop();
        m_Manager.Destroy();
    }

    uint64_t Attach(const py::handle& nameOrCode)
    {
        const hdwnames::Driver* d = DriverFor(nameOrCode);
        if (!m_Manager.FindDevice(d->Code)) {
            m_Devices.emplace_back(d->Create());
            Check(m_Manager.AttachDevice(m_Devices.back().get()), "attach a driver");
        }
        return d->Code;
    }

    // Links are "CODE:LINK" texts or (code, link) pairs; a code may be a
    // driver name, and its driver is attached when it is not yet.
    std::vector<unsigned> Enumerate(const std::vector<py::object>& links, bool scan, bool check)
    {
        std::vector<CKVX_HdwManager::CInitPortDesc> descs;
        for (const auto& l : links) {
            py::object code, text;
            if (py::isinstance<py::str>(l)) {
                const std::string s = l.cast<std::string>();
                const size_t colon = s.find(':');
                if (colon == std::string::npos || colon == 0 || colon + 1 == s.size())
                    throw py::value_error(
                        "link \"" + s + "\" is not CODE:LINK (3:/dev/ttyUSB0, 3:udp:127.0.0.1:55003)");
                const std::string c = s.substr(0, colon);
                const bool numeric = c.find_first_not_of("0123456789") == std::string::npos;
                code = numeric ? py::object(py::int_(std::stoull(c))) : py::object(py::str(c));
                text = py::str(s.substr(colon + 1));
            } else {
                auto pair = l.cast<py::tuple>();
                code = pair[0];
                text = pair[1];
            }
            descs.emplace_back(Attach(code), CKVX_String(text.cast<std::string>().c_str()));
        }
        unsigned rc = 0;
        {
            py::gil_scoped_release release;
            rc = descs.empty() ? m_Manager.Enumerate()
                               : m_Manager.Enumerate(
                                     descs.data(), unsigned(descs.size()), scan ? 0 : CKVX_HdwManager::EnumerateNoScan);
        }
        std::vector<unsigned> results;
        for (auto& d : descs)
            results.push_back(d.Result == CKVX_HdwManager::CInitPortDesc::ResultNotTried ? HDW_ERR_LINK : d.Result);
        Check(rc, "enumerate");
        for (size_t i = 0; check && i < results.size(); ++i)
            if (results[i] != 0)
                throw ResultError{results[i], "no unit answered on " + std::string(descs[i].Link.c_str())};
        return results;
    }

    void Run(unsigned timerPeriodMs, bool reconnect)
    {
        CKVX_HdwManager::CParameters p;
        p.TimerPeriod = timerPeriodMs;
        p.Reconnect = reconnect;
        if (!m_Manager.IsRunning())
            Check(m_Manager.SetParameters(p), "set the manager's parameters");
        py::gil_scoped_release release;
        Check(m_Manager.Run(), "run the manager");
    }

    void Stop()
    {
        py::gil_scoped_release release;
        m_Manager.Stop();
    }

    std::vector<PortInfo> Ports(std::optional<std::string> type)
    {
        CKVX_HdwManager::CPortInfoVector list;
        if (type)
            Check(m_Manager.GetPortList(TypeNamed(*type), list), "list the ports");
        else
            Check(m_Manager.GetPortList(list), "list the ports");
        std::vector<PortInfo> out;
        for (unsigned i = 0; i < list.GetLength(); ++i) {
            const auto& p = list[i];
            out.push_back({TypeName(p.PortType) + ":" + std::to_string(p.AbsNum), p.PortType, p.AbsNum, p.DeviceCode,
                p.DeviceInstance, p.ChannelId.c_str(), p.Manufacturer.c_str(), p.FullName.c_str(), p.Revision.c_str(),
                p.SerialNumber.c_str(), p.Link.c_str(), p.Description.c_str(), p.Key.c_str()});
        }
        return out;
    }

    // "can:0", a port-identifier key, or a type name or number with `num`.
    CKVX_HdwPort* Port(const py::object& what, std::optional<unsigned> num)
    {
        unsigned type = 0;
        if (py::isinstance<py::str>(what)) {
            const std::string s = what.cast<std::string>();
            if (s.find('@') != std::string::npos) {
                CKVX_HdwPort* port = m_Manager.FindPort(CKVX_String(s.c_str()));
                if (!port)
                    throw py::key_error("no port of the enumerated units has the key \"" + s + "\"");
                return port;
            }
            const size_t colon = s.find(':');
            type = TypeNamed(s.substr(0, colon));
            if (colon != std::string::npos) {
                if (num)
                    throw py::value_error("give the number in the name or as num, not both");
                try {
                    num = unsigned(std::stoul(s.substr(colon + 1)));
                } catch (const std::exception&) {
                    throw py::value_error("\"" + s + "\" is not a port name such as can:0");
                }
            }
        } else {
            type = what.cast<unsigned>();
        }
        if (!num)
            throw py::value_error("which port of the type: give its number");
        CKVX_HdwPort* port = m_Manager.GetPort(type, *num);
        if (!port)
            throw py::key_error("no port " + TypeName(type) + ":" + std::to_string(*num) + " (the units have " +
                std::to_string(m_Manager.GetPortCount(type)) + " of that type)");
        return port;
    }

    bool Running() const { return m_Manager.IsRunning(); }

    // How long a command-protocol unit may take to echo a command.
    void SetEchoTimeout(unsigned ms)
    {
        for (auto& d : m_Devices)
            if (auto* unit = dynamic_cast<CKVX_HdwKvxCommandUnit*>(d.get()))
                unit->SetEchoTimeout(ms);
    }

private:
    // Destroyed after the manager (members go in reverse order).
    std::vector<std::unique_ptr<CKVX_HdwDevice>> m_Devices;
    CKVX_HdwManager m_Manager;
};

template <class P>
void SetIf(const py::kwargs& kw, const char* key, P& field)
{
    if (kw.contains(key))
        field = kw[key].cast<P>();
}

uint8_t ParityCode(const py::kwargs& kw, uint8_t current)
{
    if (!kw.contains("parity"))
        return current;
    const std::string p = kw["parity"].cast<std::string>();
    if (p == "odd")
        return 0;
    if (p == "even")
        return 1;
    if (p == "none")
        return 2;
    throw py::value_error("ARINC 429 parity is odd, even or none, not " + p);
}

template <class P>
void OpenArinc429(P& port, const py::kwargs& kw)
{
    typename P::CParameters p;
    port.GetParameters(&p);
    SetIf(kw, "rate", p.BaudRate);
    SetIf(kw, "timeout", p.Timeout);
    p.Parity = ParityCode(kw, p.Parity);
    if constexpr (std::is_same_v<P, CKVX_HdwArinc429TxPort>)
        if (kw.contains("rate"))
            p.WordIntergap = std::max<uint16_t>(1, CKVX_HdwArinc429TxPort::CalcWordIntergap(p.BaudRate, 4));
    py::gil_scoped_release release;
    Check(port.Open(&p), "open the port");
}

// UART line settings by name: parity, stop bits, flow control.
uint8_t NamedCode(const py::kwargs& kw, const char* key, uint8_t current,
    std::initializer_list<std::pair<const char*, uint8_t>> names, const char* what)
{
    if (!kw.contains(key))
        return current;
    const std::string given = py::str(kw[key]).cast<std::string>();
    std::string list;
    for (const auto& [name, code] : names) {
        if (given == name)
            return code;
        list += std::string(list.empty() ? "" : ", ") + name;
    }
    throw py::value_error(std::string(what) + " is " + list + ", not " + given);
}

void OpenUart(CKVX_HdwUartPort& uart, const py::kwargs& kw)
{
    using P = CKVX_HdwUartPort::CParameters;
    P p = uart.GetUartParameters();
    SetIf(kw, "rate", p.BaudRate);
    SetIf(kw, "data_bits", p.DataBits);
    SetIf(kw, "timeout", p.Timeout);
    p.Parity = NamedCode(kw, "parity", p.Parity,
        {{"none", P::ParityNone}, {"odd", P::ParityOdd}, {"even", P::ParityEven}, {"mark", P::ParityMark},
            {"space", P::ParitySpace}},
        "UART parity");
    p.StopBits = NamedCode(kw, "stop_bits", p.StopBits,
        {{"1", P::StopBitsOne}, {"1.5", P::StopBitsOneAndHalf}, {"2", P::StopBitsTwo}}, "UART stop_bits");
    p.FlowControl = NamedCode(kw, "flow", p.FlowControl,
        {{"none", 0}, {"rtscts", P::FlowRtsCts}, {"dtrdsr", P::FlowDtrDsr}, {"xonxoff", P::FlowXonXoff}}, "UART flow");
    py::gil_scoped_release release;
    Check(uart.Open(&p), "open the port");
}

template <class P>
void OpenWith(CKVX_HdwPort& port, typename P::CParameters& p)
{
    py::gil_scoped_release release;
    Check(port.Open(&p), "open the port");
}

const char* const OpenKeywords[] = {"bitrate", "sample_point", "rate", "parity", "timeout", "data_bits", "stop_bits",
    "flow", "debounce_us", "invert_mask", "change_mask", "initial_state", "bus_speed", "bus_timeout_ms", "pull_ups",
    "mode", "clock_hz", "lsb_first", "word_bits", "chip_select", "cs_active_high"};

// Opens with keyword parameters: CAN bitrate, sample_point; ARINC 429 rate,
// parity; UART rate, data_bits, parity, stop_bits, flow; discrete inputs
// debounce_us, invert_mask, change_mask; discrete outputs initial_state,
// invert_mask; I2C bus_speed, bus_timeout_ms, pull_ups; SPI mode, clock_hz,
// lsb_first, word_bits, chip_select, cs_active_high; every port timeout (ms for the unit to confirm).
void OpenPort(CKVX_HdwPort& port, const py::kwargs& kw)
{
    for (auto item : kw) {
        const std::string key = item.first.cast<std::string>();
        if (std::find(std::begin(OpenKeywords), std::end(OpenKeywords), key) == std::end(OpenKeywords))
            throw py::type_error("open() got an unexpected keyword argument '" + key + "'");
    }
    if (auto* can = dynamic_cast<CKVX_HdwCanPort*>(&port)) {
        CKVX_HdwCanPort::CParameters p;
        can->GetParameters(&p);
        SetIf(kw, "bitrate", p.BitRate);
        SetIf(kw, "sample_point", p.SamplePoint);
        SetIf(kw, "timeout", p.Timeout);
        py::gil_scoped_release release;
        Check(can->Open(&p), "open the port");
    } else if (auto* rx = dynamic_cast<CKVX_HdwArinc429RxPort*>(&port)) {
        OpenArinc429(*rx, kw);
    } else if (auto* tx = dynamic_cast<CKVX_HdwArinc429TxPort*>(&port)) {
        OpenArinc429(*tx, kw);
    } else if (auto* uart = dynamic_cast<CKVX_HdwUartPort*>(&port)) {
        OpenUart(*uart, kw);
    } else if (auto* din = dynamic_cast<CKVX_HdwDiscreteInPort*>(&port)) {
        CKVX_HdwDiscreteInPort::CParameters p;
        Check(din->GetParameters(&p), "read the port's parameters");
        SetIf(kw, "debounce_us", p.DebounceUs);
        SetIf(kw, "invert_mask", p.InvertMask);
        SetIf(kw, "change_mask", p.ChangeMask);
        SetIf(kw, "timeout", p.Timeout);
        OpenWith<CKVX_HdwDiscreteInPort>(port, p);
    } else if (auto* dout = dynamic_cast<CKVX_HdwDiscreteOutPort*>(&port)) {
        CKVX_HdwDiscreteOutPort::CParameters p;
        Check(dout->GetParameters(&p), "read the port's parameters");
        SetIf(kw, "initial_state", p.InitialState);
        SetIf(kw, "invert_mask", p.InvertMask);
        SetIf(kw, "timeout", p.Timeout);
        OpenWith<CKVX_HdwDiscreteOutPort>(port, p);
    } else if (auto* i2c = dynamic_cast<CKVX_HdwI2cPort*>(&port)) {
        CKVX_HdwI2cPort::CParameters p;
        Check(i2c->GetParameters(&p), "read the port's parameters");
        SetIf(kw, "bus_speed", p.BusSpeed);
        SetIf(kw, "bus_timeout_ms", p.BusTimeoutMs);
        SetIf(kw, "pull_ups", p.PullUps);
        SetIf(kw, "timeout", p.Timeout);
        OpenWith<CKVX_HdwI2cPort>(port, p);
    } else if (auto* spi = dynamic_cast<CKVX_HdwSpiPort*>(&port)) {
        CKVX_HdwSpiPort::CParameters p;
        Check(spi->GetParameters(&p), "read the port's parameters");
        SetIf(kw, "mode", p.Mode);
        SetIf(kw, "clock_hz", p.ClockHz);
        SetIf(kw, "lsb_first", p.LsbFirst);
        SetIf(kw, "word_bits", p.WordBits);
        SetIf(kw, "chip_select", p.ChipSelect);
        SetIf(kw, "cs_active_high", p.CsActiveHigh);
        SetIf(kw, "timeout", p.Timeout);
        OpenWith<CKVX_HdwSpiPort>(port, p);
    } else {
        py::gil_scoped_release release;
        Check(port.Open(nullptr), "open the port");
    }
}

} // namespace

void BindManager(py::module_& m)
{
    py::class_<PortInfo>(m, "PortInfo")
        .def_readonly("name", &PortInfo::Name)
        .def_readonly("type", &PortInfo::Type)
        .def_readonly("abs_num", &PortInfo::AbsNum)
        .def_readonly("device_code", &PortInfo::DeviceCode)
        .def_readonly("device_instance", &PortInfo::DeviceInstance)
        .def_readonly("channel_id", &PortInfo::ChannelId)
        .def_readonly("manufacturer", &PortInfo::Manufacturer)
        .def_readonly("model", &PortInfo::Model)
        .def_readonly("revision", &PortInfo::Revision)
        .def_readonly("serial", &PortInfo::Serial)
        .def_readonly("link", &PortInfo::Link)
        .def_readonly("description", &PortInfo::Description)
        .def_readonly("key", &PortInfo::Key)
        .def("__repr__", [](const PortInfo& p) { return "<PortInfo " + p.Name + " " + p.Model + " " + p.Link + ">"; });

    m.def(
        "drivers",
        [] {
            std::vector<std::pair<std::string, uint64_t>> list;
            for (const auto& d : hdwnames::Drivers())
                list.emplace_back(d.Name, d.Code);
            return list;
        },
        "Every driver as (name, device code), in attachment order.");

    py::class_<Manager>(m, "Manager")
        .def(py::init([](const std::vector<py::object>& drivers) {
            auto manager = std::make_unique<Manager>();
            for (const auto& d : drivers)
                manager->Attach(d);
            return manager;
        }),
            py::arg("drivers") = std::vector<py::object>{})
        .def("attach", &Manager::Attach, py::arg("driver"), "Attaches a driver by name or device code.")
        .def("enumerate", &Manager::Enumerate, py::arg("links") = std::vector<py::object>{}, py::arg("scan") = false,
            py::arg("check") = true)
        .def("run", &Manager::Run, py::arg("timer_period_ms") = CKVX_HdwManager::DefaultTimerPeriod,
            py::arg("reconnect") = false)
        .def("stop", &Manager::Stop)
        .def_property_readonly("running", &Manager::Running)
        .def("set_echo_timeout", &Manager::SetEchoTimeout, py::arg("ms"),
            "Echo time-out of the attached command-protocol drivers, in milliseconds.")
        .def("ports", &Manager::Ports, py::arg("type") = py::none())
        .def("port", &Manager::Port, py::arg("port"), py::arg("num") = py::none(), py::return_value_policy::reference,
            py::keep_alive<0, 1>());

    using PortHolder = std::unique_ptr<CKVX_HdwPort, py::nodelete>;
    py::class_<CKVX_HdwPort, PortHolder>(m, "Port")
        .def_property_readonly("type", &CKVX_HdwPort::GetPortType)
        .def_property_readonly(
            "channel_id", [](const CKVX_HdwPort& p) { return std::string(p.GetChannelId().c_str()); })
        .def_property_readonly("is_open", &CKVX_HdwPort::IsOpen)
        .def("open", &OpenPort)
        .def("close", [](CKVX_HdwPort& p) {
            py::gil_scoped_release release;
            Check(p.Close(), "close the port");
        });
}

} // namespace hdwpy
