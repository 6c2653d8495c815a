# The page of tools/page: what it knows and how it answers.
vex_test(test_page_model
    SOURCES
        PageFleetTest.cpp
        PageLogTest.cpp
        PageModelTest.cpp
        PagePacketStoreTest.cpp
        PagePlotTest.cpp
    LIBS vex_page_model
)
