// driver.cpp
