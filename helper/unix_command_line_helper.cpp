// unix_command_line_helper.cpp
