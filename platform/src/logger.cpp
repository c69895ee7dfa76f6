// logger.cpp
