// discovery.cpp
