// fips_record.cpp
