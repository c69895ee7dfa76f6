// xml_document.cpp
