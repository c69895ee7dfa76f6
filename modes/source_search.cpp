// source_search.cpp
