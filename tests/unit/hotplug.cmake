find_package(nlohmann_json REQUIRED)

vex_test(test_hotplug
    SOURCES
        HotplugDeliveryTest.cpp
        HotplugLedgerTest.cpp
        HotplugListTest.cpp
        HotplugLoopTest.cpp
        HotplugModemsTest.cpp
        HotplugRulesTest.cpp
        HotplugStateTest.cpp
    LIBS vex_hotplug nlohmann_json::nlohmann_json
)
