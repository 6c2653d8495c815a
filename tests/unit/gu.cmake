vex_test(test_gu
    SOURCES
        GUDataProcessTest.cpp
        MsgDispTest.cpp
        MsgProcessNasTest.cpp
        OperationGUDataIndTest.cpp
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
        RegTablesTest.cpp
    LIBS vex_agent_fixture
)
