// signals.cpp
