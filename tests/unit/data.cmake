vex_test(test_data
    SOURCES
        DataProcessorTest.cpp
        DiagPacketTest.cpp
        DpAtTest.cpp
        DpGuTest.cpp
        DpLteDataTest.cpp
        DpLteDiagAckTest.cpp
        DpLteDiagTest.cpp
        LteIndFilterTest.cpp
        LteLayoutTest.cpp
        LteMeasurementTest.cpp
        ManagerConfigInfoTest.cpp
        NvWriteTest.cpp
    LIBS vex_agent_fixture
)
