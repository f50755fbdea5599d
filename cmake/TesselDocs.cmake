# The API reference: `docs` runs Doxygen over the public headers, the generated ones
# included, into build/<preset>/docs/html. Doxygen is installed by scripts/docs when missing.
find_package(Doxygen QUIET)
set(TL_DOCS_DIR ${PROJECT_BINARY_DIR}/docs)
set(TL_DOCS_MAINPAGE ${TL_DOCS_DIR}/mainpage.md)
set(TL_DOCS_FILTER "${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/docs/comment_filter.py")
get_property(TL_DOCS_GENERATED GLOBAL PROPERTY TL_GENERATED_ROOT)
# The generated headers are part of the reference: the target waits for their generators
# (not for the library's compilation).
get_property(tl_docs_generated_headers GLOBAL PROPERTY TL_GENERATED_PUBLIC_HEADERS)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${TL_DOCS_DIR}/Doxyfile @ONLY)

if(DOXYGEN_FOUND)
    add_custom_target(docs
        COMMAND ${CMAKE_COMMAND} -DREADME=${PROJECT_SOURCE_DIR}/README.md -DOUT=${TL_DOCS_MAINPAGE}
                -P ${PROJECT_SOURCE_DIR}/cmake/DocsMainPage.cmake
        COMMAND ${CMAKE_COMMAND} -E rm -rf ${TL_DOCS_DIR}/html
        COMMAND Doxygen::doxygen ${TL_DOCS_DIR}/Doxyfile
        WORKING_DIRECTORY ${TL_DOCS_DIR}
        DEPENDS ${tl_docs_generated_headers}
        COMMENT "Writing the API reference to ${TL_DOCS_DIR}/html"
        VERBATIM)
else()
    add_custom_target(docs
        COMMAND ${CMAKE_COMMAND} -E echo "Doxygen is not installed: run scripts/docs"
        COMMAND ${CMAKE_COMMAND} -E false
        VERBATIM)
endif()
