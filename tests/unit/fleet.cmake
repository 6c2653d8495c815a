vex_test(test_fleet
    SOURCES
        FleetFormatTest.cpp
        FleetRequestTest.cpp
        FleetStateTest.cpp
    LIBS vex_fleet_hub
)
vex_test(test_fleet_tool
    SOURCES
        FleetBenchesTest.cpp
        FleetSearchTest.cpp
        FleetSegmentsTest.cpp
        LabFileTest.cpp
    LIBS vex_fleet
)
