# Peer of the ZIP benchmark: libzip. Found by its header and library, since the package's
# CMake files also ask for command-line tools that Debian ships separately.
if(TARGET bench_zip)
    find_path(LIBZIP_INCLUDE_DIR zip.h REQUIRED)
    find_library(LIBZIP_LIBRARY zip REQUIRED)
    target_include_directories(bench_zip PRIVATE ${LIBZIP_INCLUDE_DIR})
    target_link_libraries(bench_zip PRIVATE ${LIBZIP_LIBRARY})
endif()
