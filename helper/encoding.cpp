// encoding.cpp
