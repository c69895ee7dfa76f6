// base64.cpp
