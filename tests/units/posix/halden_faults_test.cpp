// A unit whose link goes away: the services fail with 15 and the
// application starts over on the new link (withheld echoes, silence, noise
// and damaged frames: halden_reopen_test; a critical failure:
// units_end_to_end_test).
#include "UnitRig.h"

using namespace halden_test;

namespace {

using Pair = UnitRig::Arinc429Pair;

std::vector<CKVX_HdwArinc429Message> Words(unsigned count, unsigned label)
{
    std::vector<CKVX_HdwArinc429Message> w;
    for (unsigned i = 0; i < count; ++i)
        w.push_back(Word(label, i));
    return w;
}

TEST(HaldenFaults, HungUpLinkGivesResultCodesAndANewLinkWorks)
{
    UnitRig rig(UnitNamed("halden"), false);
    rig.Start();
    Pair p = rig.OpenArinc429Pair(0);
    rig.Sim.ClosePty();
    CKVX_HdwArinc429Message w = Word(3, 3);
    ASSERT_TRUE(WaitUntil([&] {
        p.Out->Write(&w, 1, 0);
        CKVX_HdwArinc429Message buf[2];
        unsigned n = 0;
        return p.In->Read(buf, 2, n) == 15;
    }));
    EXPECT_EQ(p.Out->Write(&w, 1, 0), 15u);

    // The application starts over on the unit's new link.
    std::string error;
    ASSERT_TRUE(rig.Sim.ReopenPty(&error)) << error;
    ASSERT_EQ(rig.Manager.Stop(), 0u);
    ASSERT_NO_FATAL_FAILURE(rig.Enumerate());
    ASSERT_EQ(rig.Manager.Run(), 0u);
    Pair q = rig.OpenArinc429Pair(0);
    const auto sent = Words(20, 0x47);
    ASSERT_EQ(q.Out->Write(const_cast<CKVX_HdwArinc429Message*>(sent.data()), unsigned(sent.size()), 0), 0u);
    EXPECT_EQ(ReadAll<CKVX_HdwArinc429Message>(q.In, sent.size()), sent);
}

} // namespace
