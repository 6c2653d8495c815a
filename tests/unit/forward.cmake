vex_test(test_forward
    SOURCES
        ForwardOptionsTest.cpp
        ForwardPublisherTest.cpp
        ForwardSpoolTest.cpp
    LIBS vex_forward
)
