// console.cpp
