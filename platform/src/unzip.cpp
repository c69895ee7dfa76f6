// unzip.cpp
