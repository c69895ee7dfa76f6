// import_keys.cpp
