// key_conf.cpp
