# Every public header compiles on its own (twice in one unit, for its include guard), and
# all of them compile together in several orders: sorted, reversed and a few fixed
# shuffles. A header that leans on another being included first, or that names something
# another namespace of the same name can hide, fails here at build time.
file(GLOB_RECURSE tl_hand_headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/include
     ${PROJECT_SOURCE_DIR}/include/tessel_link/*.h)
get_property(tl_generated_headers GLOBAL PROPERTY TL_GENERATED_PUBLIC_HEADERS)
get_property(tl_generated_root GLOBAL PROPERTY TL_GENERATED_ROOT)
set(tl_headers ${tl_hand_headers})
foreach(h IN LISTS tl_generated_headers)
    file(RELATIVE_PATH rel ${tl_generated_root} ${h})
    list(APPEND tl_headers ${rel})
endforeach()
list(SORT tl_headers)

set(tl_check_dir ${CMAKE_CURRENT_BINARY_DIR}/header_check)
set(tl_check_sources)
foreach(h IN LISTS tl_headers)
    string(MAKE_C_IDENTIFIER ${h} id)
    set(src ${tl_check_dir}/alone_${id}.cpp)
    file(CONFIGURE OUTPUT ${src} CONTENT "#include <${h}>\n#include <${h}>\n")
    list(APPEND tl_check_sources ${src})
endforeach()

# All headers in one unit, in a given order.
function(tl_all_headers_unit name)
    set(text "")
    foreach(h IN LISTS ARGN)
        string(APPEND text "#include <${h}>\n")
    endforeach()
    file(CONFIGURE OUTPUT ${tl_check_dir}/all_${name}.cpp CONTENT "${text}")
    set(tl_check_sources ${tl_check_sources} ${tl_check_dir}/all_${name}.cpp PARENT_SCOPE)
endfunction()

tl_all_headers_unit(sorted ${tl_headers})
set(tl_reversed ${tl_headers})
list(REVERSE tl_reversed)
tl_all_headers_unit(reversed ${tl_reversed})
# Fixed shuffles: the headers sorted by a hash of the name and a seed.
foreach(seed 1 2 3)
    set(keyed)
    foreach(h IN LISTS tl_headers)
        string(SHA1 key "${seed}:${h}")
        list(APPEND keyed "${key}|${h}")
    endforeach()
    list(SORT keyed)
    set(shuffled)
    foreach(entry IN LISTS keyed)
        string(REGEX REPLACE "^[^|]*\\|" "" h "${entry}")
        list(APPEND shuffled ${h})
    endforeach()
    tl_all_headers_unit(shuffle${seed} ${shuffled})
endforeach()

add_library(tl_public_header_check OBJECT ${tl_check_sources})
target_link_libraries(tl_public_header_check PRIVATE tessel_link_usage)
# The units only show that the headers compile: nothing in them is run, so nothing is
# optimised or described for a debugger.
target_compile_options(tl_public_header_check PRIVATE -O0 -g0)
# Each unit must stay a unit of its own, even in a build that turns on unity batches for
# every target (CMAKE_UNITY_BUILD): included together, the headers would hide each other's
# missing includes.
set_target_properties(tl_public_header_check PROPERTIES UNITY_BUILD OFF)
# The generated headers must exist first.
add_dependencies(tl_public_header_check tessel_link_objects)
