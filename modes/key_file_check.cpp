// key_file_check.cpp
