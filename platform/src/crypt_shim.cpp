// crypt_shim.cpp
