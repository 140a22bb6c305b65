#pragma once
// The ports and services of the command-protocol units, all in one include:
// the unit core names them (CKVX_HdwKvxHaldenDevice::CArinc429RxPort ...)
// by forward declarations, which this makes complete.

#include <HdwLib/units/KvxArinc429BufferServices.h>
#include <HdwLib/units/KvxArinc429LabelServices.h>
#include <HdwLib/units/KvxArinc429Ports.h>
#include <HdwLib/units/KvxCanByteServices.h>
#include <HdwLib/units/KvxCanPort.h>
#include <HdwLib/units/KvxCanServices.h>
#include <HdwLib/units/KvxMilStd1553BcService.h>
#include <HdwLib/units/KvxDiscretePorts.h>
#include <HdwLib/units/KvxDiscreteServices.h>
#include <HdwLib/units/KvxI2cMasterService.h>
#include <HdwLib/units/KvxI2cPort.h>
#include <HdwLib/units/KvxMilStd1553Port.h>
#include <HdwLib/units/KvxMilStd1553RtService.h>
#include <HdwLib/units/KvxOutputCount.h>
#include <HdwLib/units/KvxSignalService.h>
#include <HdwLib/units/KvxSpiMasterService.h>
#include <HdwLib/units/KvxSpiPort.h>
#include <HdwLib/units/KvxUartPort.h>
#include <HdwLib/units/KvxUartServices.h>
