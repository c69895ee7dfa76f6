// anxml.cpp
