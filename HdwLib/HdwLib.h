#pragma once
// Umbrella header: every public class of the library.

#include <HdwLib/core/KvxBuffer.h>
#include <HdwLib/core/KvxCrc.h>
#include <HdwLib/core/KvxException.h>
#include <HdwLib/core/KvxIpAddress.h>
#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxMutex.h>
#include <HdwLib/core/KvxObject.h>
#include <HdwLib/core/KvxString.h>
#include <HdwLib/core/KvxVector.h>

#include <HdwLib/framework/HdwDevice.h>
#include <HdwLib/framework/HdwEvent.h>
#include <HdwLib/framework/HdwInitPortDesc.h>
#include <HdwLib/framework/HdwManager.h>
#include <HdwLib/framework/HdwObject.h>
#include <HdwLib/framework/HdwPortIdentifier.h>
#include <HdwLib/framework/HdwPort.h>
#include <HdwLib/framework/HdwService.h>
#include <HdwLib/framework/HdwTimer.h>
#include <HdwLib/bus/HdwArinc429InBufferService.h>
#include <HdwLib/bus/HdwArinc429Message.h>
#include <HdwLib/bus/HdwArinc429OutBufferService.h>
#include <HdwLib/bus/HdwArinc429RxPort.h>
#include <HdwLib/bus/HdwArinc429TxPort.h>
#include <HdwLib/bus/HdwByteInBufferService.h>
#include <HdwLib/bus/HdwByteOutBufferService.h>
#include <HdwLib/bus/HdwCanInBufferService.h>
#include <HdwLib/bus/HdwCanMessage.h>
#include <HdwLib/bus/HdwCanOutBufferService.h>
#include <HdwLib/bus/HdwCanPort.h>
#include <HdwLib/bus/HdwSignalService.h>
#include <HdwLib/bus/HdwUartPort.h>

#include <HdwLib/links/HdwFtdiUartBridgedDevice.h>
#include <HdwLib/links/HdwHoe.h>
#include <HdwLib/links/HdwHoeDevice.h>
#include <HdwLib/links/HdwHoeFtdiUartBridgedDevice.h>
#include <HdwLib/links/HdwHoeLink.h>
#include <HdwLib/links/HdwStdUartDevice.h>
#include <HdwLib/links/HdwTcpClientSocket.h>
#include <HdwLib/links/HdwTcpServerSocket.h>
#include <HdwLib/links/HdwUdpEmulatorDevice.h>
#include <HdwLib/links/HdwUdpSocket.h>
#include <HdwLib/links/Uart.h>

#include <HdwLib/units/KvxCommandDevice.h>
#include <HdwLib/units/KvxCommandEvents.h>
#include <HdwLib/units/KvxCommandPorts.h>
#include <HdwLib/units/HdwKvxArvaneDevice.h>
#include <HdwLib/units/HdwKvxBexleyDevice.h>
#include <HdwLib/units/HdwKvxHaldenDevice.h>
#include <HdwLib/units/HdwKvxHaldenSmallDevice.h>
#include <HdwLib/units/HdwKvxMirrowDevice.h>
#include <HdwLib/units/HdwKvxPellorDevice.h>
#include <HdwLib/units/HdwKvxQuillanDevice.h>
