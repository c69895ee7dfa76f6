// command_line_data.cpp
