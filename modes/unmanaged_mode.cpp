// unmanaged_mode.cpp
