// file_replace.cpp
