// network_util.cpp
