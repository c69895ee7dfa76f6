// registry.cpp
