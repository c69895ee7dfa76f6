// version_checks.cpp
