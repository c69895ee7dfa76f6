// text.cpp
