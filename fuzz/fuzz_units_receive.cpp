// libFuzzer target: arbitrary bytes from a unit into the receive machine,
// the event decoders and the input services behind them (every channel has
// its receive service and a signal service).
#include "../tests/support/HaldenFeed.h"

#include <cstddef>
#include <cstdint>

namespace {

halden_feed::CFeedDevice& Device()
{
    static halden_feed::CFeedDevice* d = [] {
        auto* dev = new halden_feed::CFeedDevice;
        using D = CKVX_HdwKvxHaldenDevice;
        for (unsigned ch = 0; ch < 4; ++ch) {
            dev->AddService<D::CArinc429InBufferService>(HDW_PORT_ARINC429_RX, ch);
            dev->AddService<D::CArinc429OutBufferService>(HDW_PORT_ARINC429_TX, ch);
        }
        for (unsigned ch = 0; ch < 2; ++ch) {
            dev->AddService<D::CCanInBufferService>(HDW_PORT_CAN, ch);
            dev->AddService<D::CCanOutBufferService>(HDW_PORT_CAN, ch);
            dev->AddService<D::CUartByteInBufferService>(HDW_PORT_UART, ch);
            dev->AddService<D::CUartByteOutBufferService>(HDW_PORT_UART, ch);
            dev->AddService<D::CSignalService>(HDW_PORT_CAN, ch);
        }
        return dev;
    }();
    return *d;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    halden_feed::CFeedDevice& d = Device();
    // Half the inputs through the link's receive list, half fed directly;
    // each starts from a hunting machine.
    d.DeviceLock(0);
    d.Inst->ResetRxState();
    d.Inst->GetUnread().clear();
    d.DeviceUnlock(0);
    if (size > 0 && (data[0] & 1)) {
        d.Push(data + 1, size - 1);
        d.Receive();
    } else {
        d.Feed(data, size);
    }
    return 0;
}
