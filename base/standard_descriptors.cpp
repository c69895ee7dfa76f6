// standard_descriptors.cpp
