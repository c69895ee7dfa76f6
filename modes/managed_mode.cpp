// managed_mode.cpp
