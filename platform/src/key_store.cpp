// key_store.cpp
