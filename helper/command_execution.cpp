// command_execution.cpp
