# tessel_link/version.h: the project's version for hosts and for the tool, written at
# configure time from include/tessel_link/version.h.in.
set(TL_VERSION_HEADER ${TL_GENERATED_DIR}/tessel_link/version.h)
configure_file(${PROJECT_SOURCE_DIR}/include/tessel_link/version.h.in ${TL_VERSION_HEADER} @ONLY)
set(TL_VERSION_GENERATED ${TL_VERSION_HEADER})
