vex_test(test_fleet
    SOURCES
        FleetFormatTest.cpp
        FleetRequestTest.cpp
        FleetStateTest.cpp
    LIBS vex_fleet_hub
)
