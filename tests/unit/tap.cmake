vex_test(test_tap
    SOURCES
        TapMemoryTest.cpp
        TapRingTest.cpp
        TapServerTest.cpp
    LIBS vex_tap
)
