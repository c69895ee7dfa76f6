// custom_properties.cpp
