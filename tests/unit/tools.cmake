vex_test(test_uesim SOURCES UesimTest.cpp UesimGuTest.cpp LIBS vex_uesim)
