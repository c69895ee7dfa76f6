// parser.cpp
