vex_test(test_agent SOURCES AgentTapTest.cpp AgentTest.cpp ClientOutTest.cpp ClientTest.cpp ChannelBindingTest.cpp DueActionsTest.cpp
                 ServiceNotifyTest.cpp StatusTest.cpp UeEventsTest.cpp UeHandshakeTest.cpp
         LIBS vex_agent_fixture)
# A program of its own: its allocation functions can be made to fail.
vex_test(test_no_memory SOURCES NoMemoryTest.cpp ../support/FailingNew.cpp LIBS vex_agent_fixture)
