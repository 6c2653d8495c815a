# The command-line client of tools/client.
vex_test(test_client_tool SOURCES AtTerminalTest.cpp ClientToolTest.cpp ClientCommandsTest.cpp ReplayCompareTest.cpp
         LIBS vex_client_tool)
