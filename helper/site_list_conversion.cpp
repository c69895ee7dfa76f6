// site_list_conversion.cpp
