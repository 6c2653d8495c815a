vex_test(test_ue
    SOURCES
        ChildChannelTest.cpp
        DeviceMonitorTest.cpp
        HDLCParseTest.cpp
        LineWriterTest.cpp
        PortWorkerTest.cpp
        RecordConnectionsTest.cpp
        SerialTest.cpp
        TcpChannelTest.cpp
        UEManagerTest.cpp
        UETest.cpp
    LIBS vex_ue
)
