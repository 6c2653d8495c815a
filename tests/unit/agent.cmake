vex_test(test_agent SOURCES AgentTest.cpp ClientTest.cpp ChannelBindingTest.cpp StatusTest.cpp UeEventsTest.cpp
         LIBS vex_agent_fixture)
