vex_test(test_uesim SOURCES UesimTest.cpp UesimGuTest.cpp ReplayPlanTest.cpp ReplayRunTest.cpp LIBS vex_uesim)
