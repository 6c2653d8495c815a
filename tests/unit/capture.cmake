vex_test(test_capture
    SOURCES
        PcapngTest.cpp
    LIBS vex_capture_file
)
target_link_libraries(test_capture PRIVATE ${ZSTD_LIBRARY})
