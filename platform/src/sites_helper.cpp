// sites_helper.cpp
