// registry_keys.cpp
