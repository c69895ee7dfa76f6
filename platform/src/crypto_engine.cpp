// crypto_engine.cpp
