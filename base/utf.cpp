// utf.cpp
