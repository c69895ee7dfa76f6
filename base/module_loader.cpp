// module_loader.cpp
