#include <hdwsim/UnitModel.h>

#include <array>

namespace hdwsim {

namespace {

// Name, model word, kind, UART, A429 TX, A429 RX, CAN, 1553, serial, Ethernet, UDP port, serial number,
// revision, A429 TX config base, A429 RX config base, CAN config base, CAN push base, keep-alive, critical failure,
// discrete banks, I2C masters, SPI masters, UARTs on port packets.
// The 8- and 16-channel ARINC 429 units have command blocks of their own
// (64/72 and 80/96) so that no range overlaps another or a fixed code; the
// 4-channel CAN unit pushes at 56 + channel, clear of its configuration codes.
constexpr std::array<UnitModel, 10> s_Models{{
    {"halden", "Halden", 3, 2, 4, 4, 2, 2, true, true, 55003, "HLD-EMU-0001", "1.0", 20, 24, 48, 50, false, true},
    {"arvane", "Arvane", 6, 0, 8, 8, 0, 0, true, true, 55006, "ARV-EMU-0001", "1.0", 64, 72, 48, 50, false, false},
    {"haldensmall", "Halden Small", 8, 0, 2, 2, 1, 0, true, false, 0, "HDS-EMU-0001", "1.0", 20, 24, 48, 50, false,
        false},
    {"pellor", "Pellor", 10, 0, 16, 16, 0, 0, true, true, 55010, "PEL-EMU-0001", "1.0", 80, 96, 48, 50, true, true},
    {"mirrow", "Mirrow", 12, 0, 2, 2, 0, 0, true, false, 0, "MIR-EMU-0001", "1.0", 20, 24, 48, 50, false, false},
    {"bexley", "Bexley", 4, 0, 0, 0, 4, 0, true, false, 0, "BEX-EMU-0001", "1.0", 20, 24, 48, 56, false, false},
    {"quillan", "Quillan", 11, 0, 0, 0, 2, 0, true, false, 0, "QUI-EMU-0001", "1.0", 20, 24, 48, 50, false, false},
    {"travin", "Travin", 5, 0, 0, 0, 0, 0, true, false, 0, "TRV-EMU-0001", "1.0", 20, 24, 48, 50, false, false, 4},
    // Two I2C and two SPI masters.
    {"wendal", "Wendal", 7, 0, 0, 0, 0, 0, true, false, 0, "WEN-EMU-0001", "1.0", 20, 24, 48, 50, false, false, 0, 2,
        2},
    {"sorrel", "Sorrel", 9, 6, 0, 0, 0, 0, false, true, 55009, "SOR-EMU-0001", "1.0", 20, 24, 48, 50, false, false, 0,
        0, 0, true},
}};

} // namespace

std::span<const UnitModel> UnitModels()
{
    return s_Models;
}

const UnitModel* FindUnitModel(std::string_view name)
{
    for (const UnitModel& m : s_Models)
        if (m.Name == name)
            return &m;
    return nullptr;
}

const UnitModel& HaldenModel()
{
    return s_Models[0];
}

} // namespace hdwsim
