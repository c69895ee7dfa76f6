// mode_switch.cpp
