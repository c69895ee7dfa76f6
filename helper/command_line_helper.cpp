// command_line_helper.cpp
