// registry_file.cpp
