# Peers of the XML reader benchmark: pugixml, libxml2 and expat.
if(TARGET bench_xml_reader)
    find_package(LibXml2 REQUIRED)
    find_package(pugixml REQUIRED)
    find_package(EXPAT REQUIRED)
    target_link_libraries(bench_xml_reader PRIVATE pugixml::pugixml LibXml2::LibXml2 EXPAT::EXPAT)
endif()
