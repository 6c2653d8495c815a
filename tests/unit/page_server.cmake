# The server of tools/page, in front of views that the tests make up.
vex_test(test_page_server
    SOURCES
        PageControlTest.cpp
        PageFilesTest.cpp
        PageGuardTest.cpp
        PageOptionsTest.cpp
        PageOrderTest.cpp
        PageServerTest.cpp
        PageTapLoopTest.cpp
    LIBS vex_page_server
)
