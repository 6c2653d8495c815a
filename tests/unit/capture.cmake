vex_test(test_capture
    SOURCES
        CaptureOptionsTest.cpp
        CapturePictureTest.cpp
        CaptureSegmentsTest.cpp
        CaptureWriterTest.cpp
        PcapngTest.cpp
    LIBS vex_capture
)
target_link_libraries(test_capture PRIVATE ${ZSTD_LIBRARY})
