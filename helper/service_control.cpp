// service_control.cpp
