#include <hdwsim/UnitModel.h>

#include <array>

namespace hdwsim {

namespace {

// Name, model word, kind, UART, A429 TX, A429 RX, CAN, 1553, serial, Ethernet, UDP port, serial number, revision.
constexpr std::array<UnitModel, 1> s_Models{{
    {"halden", "Halden", 3, 2, 4, 4, 2, 2, true, true, 55003, "HLD-EMU-0001", "1.0"},
}};

} // namespace

std::span<const UnitModel> UnitModels() { return s_Models; }

const UnitModel* FindUnitModel(std::string_view name)
{
    for (const UnitModel& m : s_Models)
        if (m.Name == name)
            return &m;
    return nullptr;
}

const UnitModel& HaldenModel() { return s_Models[0]; }

} // namespace hdwsim
