// config_values.cpp
