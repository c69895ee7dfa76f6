// afile.cpp
