// instance_lock.cpp
