// apath.cpp
