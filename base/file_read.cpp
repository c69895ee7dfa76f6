// file_read.cpp
