vex_test(test_gu
    SOURCES
        GUDataProcessTest.cpp
        MsgDispTest.cpp
        MsgProcessNasTest.cpp
        OperationGUDataIndTest.cpp
        OperationGUDataQueryTest.cpp
        OperationGUDataReportTest.cpp
        OperationGUDataReqTest.cpp
        PeriodMsgTest.cpp
        RlcThroughputTest.cpp
        TraceCounterTest.cpp
    LIBS vex_agent_fixture
)

vex_test(test_reg
    SOURCES
        GuRegisterTest.cpp
        RegCqiTest.cpp
        RegDecodingTbsTest.cpp
        RegDecodingTest.cpp
        RegHsupaTest.cpp
        RegLinkTest.cpp
        RegMsgProcessTest.cpp
        RegPowerControlTest.cpp
        RegTablesTest.cpp
        RegisterManagerTest.cpp
    LIBS vex_agent_fixture
)

target_compile_definitions(test_reg PRIVATE VEX_TEST_DATA_DIR="${CMAKE_SOURCE_DIR}/tests/data")

vex_test(test_gu_reports
    SOURCES
        GuReportsPropertyTest.cpp
        GuReportsRequestTest.cpp
        MsgProcessGasTest.cpp
        MsgProcessGdspAmrTest.cpp
        MsgProcessGdspTest.cpp
        MsgProcessTtfTest.cpp
        MsgProcessTtfTraceTest.cpp
    LIBS vex_agent_fixture
)

# CGuEvents sees what is sent, and when.
foreach(NAME test_gu test_gu_reports)
    target_link_options(${NAME} PRIVATE LINKER:--wrap=send)
endforeach()
