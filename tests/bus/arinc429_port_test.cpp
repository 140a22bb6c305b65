#include "TestBusDevice.h"

#include <gtest/gtest.h>

using namespace bustest;

TEST(Arinc429PortParameters, DefaultsWordIntergapAndPortTypes)
{
    // 12.5 kbit/s by default, with the 4-bit gap of that rate less one.
    EXPECT_EQ(CKVX_HdwArinc429RxPort::CParameters().BaudRate, 12500u);
    CKVX_HdwArinc429TxPort::CParameters tx;
    EXPECT_EQ(tx.BaudRate, 12500u);
    EXPECT_EQ(tx.WordIntergap, 319);
    EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(12500, 4), 320);
    EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(100000, 4), 40);
    EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(12500, 4.5), 360);
    EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(100000, 0.04), 0);  // 0.4 us rounds down
    EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(100000, 0.05), 1);  // 0.5 us rounds up
    EXPECT_EQ(CKVX_HdwArinc429TxPort::CalcWordIntergap(0, 4), 0);
    EXPECT_EQ(CKVX_HdwArinc429RxPort(nullptr, 2, "RX7").GetPortType(), 3u);
    EXPECT_EQ(CKVX_HdwArinc429TxPort(nullptr, 1, "TX3").GetPortType(), 2u);
}

class Arinc429Ports : public ::testing::Test {
protected:
    CBusRig rig;
};

TEST_F(Arinc429Ports, OpenInstallsParametersEvenWhenItFails)
{
    CTestRxPort* rx = rig.Rx();
    ASSERT_NE(rx, nullptr);
    CKVX_HdwArinc429RxPort::CParameters p;
    p.BaudRate = 100000;
    p.Parity = 2;
    p.PortNum = 9;
    // No service enabled: the base open refuses, the parameters stay.
    EXPECT_EQ(rx->Open(&p), 15u);
    CKVX_HdwArinc429RxPort::CParameters back;
    EXPECT_EQ(rx->GetParameters(&back), 0u);
    EXPECT_EQ(back.BaudRate, 100000u);
    EXPECT_EQ(back.Parity, 2);
    EXPECT_EQ(back.PortNum, 9u);
    EXPECT_FALSE(rx->IsOpen());

    CKVX_HdwArinc429TxPort::CParameters wrongClass;
    EXPECT_EQ(rx->Open(&wrongClass), 2u);
}

TEST_F(Arinc429Ports, SetBaudRateOnlyWhileOpenAndUnchecked)
{
    CTestTxPort* tx = rig.Tx();
    EXPECT_EQ(tx->SetBaudRate(100000), 19u);
    CKVX_HdwArinc429TxPort::CParameters p;
    tx->GetParameters(&p);
    EXPECT_EQ(p.BaudRate, 12500u);

    ASSERT_NE(Enable<CKVX_HdwArinc429OutBufferService>(tx, 5), nullptr);
    CKVX_HdwArinc429TxPort::CParameters open;
    open.WordIntergap = 40;
    ASSERT_EQ(tx->Open(&open), 0u);
    EXPECT_EQ(tx->SetBaudRate(0), 0u);
    tx->GetParameters(&p);
    EXPECT_EQ(p.BaudRate, 0u);
    EXPECT_EQ(p.WordIntergap, 40);
    EXPECT_EQ(tx->Close(), 0u);
    EXPECT_FALSE(tx->IsOpen());
    EXPECT_EQ(tx->SetBaudRate(12500), 19u);
}

TEST_F(Arinc429Ports, ReceiverAdmitsItsTypesAndExcludesTheReaders)
{
    CTestRxPort* rx = rig.Rx();
    unsigned rc = 0;
    for (unsigned type : {3u, 5u, 7u, 8u, 9u, 15u, 0u, 99u}) {
        CKVX_HdwService* s = nullptr;
        EXPECT_EQ(rx->EnableService(type, &s, nullptr), 10u) << type;
    }
    ASSERT_NE(Enable<CTestArinc429InService>(rx, 4), nullptr);
    Enable<CKVX_HdwService>(rx, 4, &rc);
    EXPECT_EQ(rc, 26u);
    Enable<CKVX_HdwService>(rx, 6, &rc);
    EXPECT_EQ(rc, 10u);
    Enable<CKVX_HdwService>(rx, 2, &rc);
    EXPECT_EQ(rc, 10u);
    EXPECT_NE(Enable<CKVX_HdwSignalService>(rx, 1), nullptr);
    Enable<CKVX_HdwService>(rx, 1, &rc);
    EXPECT_EQ(rc, 26u);
    EXPECT_EQ(rx->GetServiceCount(), 2u);

    // With the input buffer gone, the label-oriented input may come, and then
    // it refuses the other two.
    ASSERT_EQ(rx->DisableService(rx->FindService(4)), 0u);
    EXPECT_NE(Enable<CKVX_HdwService>(rx, 6), nullptr);
    Enable<CKVX_HdwService>(rx, 4, &rc);
    EXPECT_EQ(rc, 10u);
    Enable<CKVX_HdwService>(rx, 2, &rc);
    EXPECT_EQ(rc, 10u);
    ASSERT_EQ(rx->DisableService(rx->FindService(6)), 0u);
    EXPECT_NE(Enable<CKVX_HdwByteInBufferService>(rx, 2), nullptr);
    Enable<CKVX_HdwService>(rx, 4, &rc);
    EXPECT_EQ(rc, 10u);
}

TEST_F(Arinc429Ports, TransmitterExclusionTable)
{
    CTestTxPort* tx = rig.Tx();
    unsigned rc = 0;
    for (unsigned type : {2u, 4u, 6u, 8u, 9u}) {
        Enable<CKVX_HdwService>(tx, type, &rc);
        EXPECT_EQ(rc, 10u) << type;
    }
    // Label-oriented output and data generator go together...
    ASSERT_NE(Enable<CKVX_HdwService>(tx, 7), nullptr);
    ASSERT_NE(Enable<CKVX_HdwService>(tx, 15), nullptr);
    ASSERT_NE(Enable<CKVX_HdwService>(tx, 1), nullptr);
    // ...and refuse either buffer service.
    Enable<CKVX_HdwService>(tx, 5, &rc);
    EXPECT_EQ(rc, 10u);
    Enable<CKVX_HdwService>(tx, 3, &rc);
    EXPECT_EQ(rc, 10u);
    Enable<CKVX_HdwService>(tx, 15, &rc);
    EXPECT_EQ(rc, 26u);

    tx->DisableService(tx->FindService(7));
    tx->DisableService(tx->FindService(15));
    // Each buffer service runs alone.
    ASSERT_NE(Enable<CKVX_HdwArinc429OutBufferService>(tx, 5), nullptr);
    for (unsigned type : {3u, 7u, 15u}) {
        Enable<CKVX_HdwService>(tx, type, &rc);
        EXPECT_EQ(rc, 10u) << type;
    }
    tx->DisableService(tx->FindService(5));
    ASSERT_NE(Enable<CKVX_HdwByteOutBufferService>(tx, 3), nullptr);
    for (unsigned type : {5u, 7u, 15u}) {
        Enable<CKVX_HdwService>(tx, type, &rc);
        EXPECT_EQ(rc, 10u) << type;
    }
}

TEST_F(Arinc429Ports, BaseRulesComeFirst)
{
    CTestRxPort* rx = rig.Rx();
    ASSERT_NE(Enable<CKVX_HdwService>(rx, 1), nullptr);
    ASSERT_EQ(rx->Open(nullptr), 0u);
    unsigned rc = 0;
    // An open port takes no service change, whatever the type.
    Enable<CKVX_HdwService>(rx, 4, &rc);
    EXPECT_EQ(rc, 10u);
    EXPECT_EQ(rx->Close(), 0u);
    rig.Manager.Stop();
    Enable<CKVX_HdwService>(rx, 4, &rc);
    EXPECT_EQ(rc, 10u);
}
