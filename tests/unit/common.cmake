vex_test(test_common
    SOURCES
        BytesTest.cpp
        ConfigListsTest.cpp
        ConfigTest.cpp
        DebugTest.cpp
        IdFlagsTest.cpp
        ListenSocketTest.cpp
        MsgBufTest.cpp
        ScanTest.cpp
        ThreadTest.cpp
        WaitTest.cpp
        WakeUpTest.cpp
        xtlTest.cpp
    LIBS vex_common
)
target_compile_definitions(test_common PRIVATE VEX_CONFIG_FILE="${CMAKE_SOURCE_DIR}/config/vex.cfg")
