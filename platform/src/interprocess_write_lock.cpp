// interprocess_write_lock.cpp
