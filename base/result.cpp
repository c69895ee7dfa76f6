// result.cpp
