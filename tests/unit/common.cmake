vex_test(test_common
    SOURCES
        BytesTest.cpp
        ConfigCheckTest.cpp
        ConfigListsTest.cpp
        ConfigTest.cpp
        DebugTest.cpp
        IdFlagsTest.cpp
        LineLoadTest.cpp
        LogFileTest.cpp
        ListenSocketTest.cpp
        MsgBufTest.cpp
        PseudoTerminalTest.cpp
        RepeatedLinesTest.cpp
        ScanTest.cpp
        ThreadTest.cpp
        TurnTest.cpp
        WaitTest.cpp
        WakeUpTest.cpp
        xtlTest.cpp
    LIBS vex_common
)
target_compile_definitions(test_common PRIVATE VEX_CONFIG_FILE="${CMAKE_SOURCE_DIR}/config/vex.cfg")
