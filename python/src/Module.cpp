// The compiled part of the hdwlib package (hdwlib._hdwlib); hdwlib/__init__.py
// re-exports it.

#include "Binding.h"

PYBIND11_MODULE(_hdwlib, m)
{
    m.doc() = "HdwLib: interface units for ARINC 429, CAN and more";
    hdwpy::BindCore(m);
    hdwpy::BindManager(m);
    hdwpy::BindArinc429(m);
    hdwpy::BindCan(m);
    hdwpy::BindSignals(m);
    hdwpy::BindBytes(m);
    hdwpy::BindDiscrete(m);
    hdwpy::BindI2cSpi(m);
}
