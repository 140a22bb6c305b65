// The emulator's options that set up simulated MIL-STD-1553 terminals and faults.

#include <hdwsim/MilStd1553Options.h>

#include <gtest/gtest.h>

using hdwsim::MilStd1553Fault;

TEST(Mil1553Options, TerminalsAndFaultsAreReadOrRefusedWhole)
{
    std::vector<unsigned> terminals;
    ASSERT_TRUE(hdwsim::ParseMilStd1553Terminals("5,7,30", terminals));
    EXPECT_EQ(terminals, (std::vector<unsigned>{5, 7, 30}));
    for (const char* bad : {"", "31", "5,", ",5", "5;7", "x", "-1"}) {
        std::vector<unsigned> none;
        EXPECT_FALSE(hdwsim::ParseMilStd1553Terminals(bad, none)) << bad;
        EXPECT_TRUE(none.empty()) << bad;
    }

    hdwsim::MilStd1553FaultOption f;
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("5:AB:parity:3", f));
    EXPECT_EQ(f.Address, 5u);
    EXPECT_EQ(f.Buses, (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(f.Fault, MilStd1553Fault::ParityError);
    EXPECT_EQ(f.Transfers, 3u);
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("30:B:noresponse", f));
    EXPECT_EQ(f.Buses, (std::vector<unsigned>{1}));
    EXPECT_EQ(f.Fault, MilStd1553Fault::NoResponse);
    EXPECT_EQ(f.Transfers, 0u) << "until cleared";
    ASSERT_TRUE(hdwsim::ParseMilStd1553Fault("0:A:wordcount", f));
    EXPECT_EQ(f.Fault, MilStd1553Fault::BadWordCount);
    for (const char* bad :
        {"31:A:parity", "5:C:parity", "5:A:noise", "5:A", "5:A:parity:0", "5:A:parity:2:1", ":A:parity"})
        EXPECT_FALSE(hdwsim::ParseMilStd1553Fault(bad, f)) << bad;
}
