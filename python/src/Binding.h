#pragma once
// Shared pieces of the Python module: result codes turned into hdwlib.HdwError,
// the Python-side word, frame and signal records, and the time stamp mapping.

#include <HdwLib/HdwLib.h>

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>

namespace hdwpy {

namespace py = pybind11;

// Thrown for a non-zero result code; the module turns it into hdwlib.HdwError.
struct ResultError {
    unsigned Code;
    std::string Context;
};

// Throws ResultError for a non-zero code.
void Check(unsigned code, const char* context);

// Host wall-clock seconds since 1970 of a unit time stamp of `port`'s unit:
// unwrapped, drift-corrected onto the host's monotonic clock, plus the
// process's offset from that clock to the wall clock (taken once). The
// current time when the unit cannot map it (a unit that is no
// command-protocol unit, or no reception yet).
double StampToWall(CKVX_HdwPort* port, uint64_t stamp);
// The same for a unit time already unwrapped (64-bit unit microseconds).
double UnitTimeToWall(CKVX_HdwPort* port, uint64_t unitUs);

// An ARINC 429 word as Python sees it. `ParityOk` means odd parity, the
// bus standard; `Time` is host epoch seconds (0 for a word built here).
struct Arinc429Word {
    unsigned Label = 0;
    unsigned Sdi = 0;
    uint32_t Data = 0;
    unsigned Ssm = 0;
    bool ParityOk = true;
    double Time = 0.0;

    uint32_t Raw() const;
    static Arinc429Word FromRaw(uint32_t raw, double time);
    static Arinc429Word FromMessage(const CKVX_HdwArinc429Message& m, double time);
    CKVX_HdwArinc429Message ToMessage() const;
};

// A CAN frame as Python sees it; `Dlc` is the length code on the bus (the
// data length, or more for a remote frame or a code above 8).
struct CanFrame {
    uint32_t Id = 0;
    std::string Data; // bytes
    bool Extended = false;
    bool Rtr = false;
    unsigned Dlc = 0;
    double Time = 0.0;

    static CanFrame FromMessage(const CKVX_HdwCanMessage& m, double time);
    CKVX_HdwCanMessage ToMessage() const;
};

void BindCore(py::module_& m);
void BindManager(py::module_& m);
void BindArinc429(py::module_& m);
void BindCan(py::module_& m);
void BindSignals(py::module_& m);
void BindBytes(py::module_& m);
void BindDiscrete(py::module_& m);
void BindI2cSpi(py::module_& m);

// Enabling a service already on the port gives the one there (the library
// allows one of each kind per port).
template <class S>
S* EnableOn(CKVX_HdwPort& port, unsigned type, CKVX_HdwService::CParameters* params, const char* what)
{
    CKVX_HdwService* s = port.FindService(type);
    if (!s)
        Check(port.EnableService(type, &s, params), what);
    auto* typed = dynamic_cast<S*>(s);
    if (!typed)
        throw ResultError{HDW_ERR_NOT_SUPPORTED, what};
    return typed;
}

} // namespace hdwpy
