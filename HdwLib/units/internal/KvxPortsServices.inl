// Ports and services of the command-protocol units. Included once, by
// KvxCommandDevice.cpp, before the explicit instantiations.

#include <HdwLib/units/internal/KvxUnitAccess.h>

#include <algorithm>
#include <iterator>

#include <HdwLib/units/internal/KvxUnitPorts.inl>
#include <HdwLib/units/internal/KvxUartServices.inl>
#include <HdwLib/units/internal/KvxArinc429Services.inl>
#include <HdwLib/units/internal/KvxLabelServices.inl>
#include <HdwLib/units/internal/KvxCanServices.inl>
#include <HdwLib/units/internal/KvxSignalService.inl>
#include <HdwLib/units/internal/KvxByteAndMilPorts.inl>
