// crypto_loader.cpp
