// provision_loader.cpp
