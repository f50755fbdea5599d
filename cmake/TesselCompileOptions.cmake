# Compile options shared by every target of the project.

# Warnings are part of the contract: both compilers must build warning-free.
add_compile_options(-Wall -Wextra)

# Source paths in error origins are relative to the tree, and those of generated sources to
# the build tree, so that line tags and the file names carried by errors do not depend on
# where the tree was checked out or built, nor on whether ccache (which hands the compiler
# paths relative to the build tree) takes part. GCC applies the last map that matches.
file(RELATIVE_PATH tl_tree_from_build "${CMAKE_BINARY_DIR}" "${PROJECT_SOURCE_DIR}")
string(REGEX REPLACE "/+$" "" tl_tree_from_build "${tl_tree_from_build}")
if(NOT tl_tree_from_build STREQUAL "")
    add_compile_options("-fmacro-prefix-map=${tl_tree_from_build}/=")
endif()
add_compile_options("-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
if(NOT CMAKE_BINARY_DIR STREQUAL PROJECT_SOURCE_DIR)
    add_compile_options("-fmacro-prefix-map=${CMAKE_BINARY_DIR}/=")
endif()

if(TL_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

if(TL_BUILD_FUZZ)
    # Coverage for the fuzzers must reach into the library, not stop at the target's own file.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(TL_TSAN)
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
endif()

# ccache with paths taken relative to the tree, so that clones and work trees in other
# places share one cache (a fresh clone's build is then mostly cache hits).
find_program(TL_CCACHE ccache)
if(TL_CCACHE)
    # The generated units use a precompiled header, which ccache caches only when told to.
    set(TL_CCACHE_LAUNCHER env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=true
        CCACHE_SLOPPINESS=pch_defines,time_macros ${TL_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${TL_CCACHE_LAUNCHER})
    set(CMAKE_C_COMPILER_LAUNCHER ${TL_CCACHE_LAUNCHER})
endif()
