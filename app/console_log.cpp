// console_log.cpp
