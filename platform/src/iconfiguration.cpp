// iconfiguration.cpp
