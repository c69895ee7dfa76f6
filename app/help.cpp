// help.cpp
