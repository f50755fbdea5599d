# Generates the records, their codecs and the type catalogue from the interface definitions
# in xidl/: one header of all types, one unit per definition file (and one more for the
# hierarchies a file declares), one catalogue unit.
set(TL_XIDL_ORDER ${PROJECT_SOURCE_DIR}/xidl/modules.txt)
set(TL_XIDLC ${PROJECT_SOURCE_DIR}/tools/xidlc/xidlc.py)
file(GLOB TL_XIDL_FILES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/xidl/*.xidl)
file(GLOB TL_XIDLC_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/xidlc/*.py)
# Which files come out depends on the definitions and the generator, so a change of them
# reconfigures.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${TL_XIDL_ORDER} ${TL_XIDL_FILES}
    ${TL_XIDLC_SOURCES})

execute_process(
    COMMAND ${Python3_EXECUTABLE} ${TL_XIDLC} --order ${TL_XIDL_ORDER} --list-outputs
    OUTPUT_VARIABLE tl_xidl_outputs
    ERROR_VARIABLE tl_xidl_error
    RESULT_VARIABLE tl_xidl_result
    OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT tl_xidl_result EQUAL 0)
    message(FATAL_ERROR "The interface definitions do not compile:\n${tl_xidl_error}")
endif()

set(TL_XIDL_GENERATED)
set(TL_XIDL_SOURCES)
foreach(out IN LISTS tl_xidl_outputs)
    list(APPEND TL_XIDL_GENERATED ${TL_GENERATED_DIR}/${out})
    if(out MATCHES "\\.cpp$")
        list(APPEND TL_XIDL_SOURCES ${TL_GENERATED_DIR}/${out})
    endif()
endforeach()

# The generator rewrites only the files whose text changed; the stamp records the run, so
# that an edit of one definition recompiles only the units it touches.
set(TL_XIDL_STAMP ${TL_GENERATED_DIR}/xidl/generated.stamp)
add_custom_command(
    OUTPUT ${TL_XIDL_STAMP}
    BYPRODUCTS ${TL_XIDL_GENERATED}
    COMMAND ${Python3_EXECUTABLE} ${TL_XIDLC} --order ${TL_XIDL_ORDER} --out ${TL_GENERATED_DIR}
    COMMAND ${CMAKE_COMMAND} -E touch ${TL_XIDL_STAMP}
    DEPENDS ${TL_XIDL_ORDER} ${TL_XIDL_FILES} ${TL_XIDLC_SOURCES}
    COMMENT "Generating records and codecs from the interface definitions"
    VERBATIM)
add_custom_target(tessel_link_xidl DEPENDS ${TL_XIDL_STAMP})
# The stamp is listed too, so that every unit including a record header (component units,
# hand-written ones) compiles only after the generator has run, not merely those it wrote.
list(APPEND TL_GENERATED_SOURCES ${TL_XIDL_SOURCES} ${TL_XIDL_STAMP})
# Line tables are all the debug information the generated units need; full debug
# information for some ten thousand generated functions would double their build time.
set_source_files_properties(${TL_XIDL_SOURCES} PROPERTIES
    COMPILE_OPTIONS "$<$<CONFIG:Debug,RelWithDebInfo>:-g1>")
# The creators of default unit trees run once per type when a host registers the types;
# optimising some six hundred of them costs more than three times their build without
# optimisation and gains nothing a host could notice.
set(tl_xidl_creators ${TL_XIDL_SOURCES})
list(FILTER tl_xidl_creators INCLUDE REGEX "/por_types\\.cpp$")
set_source_files_properties(${tl_xidl_creators} PROPERTIES
    COMPILE_OPTIONS "$<$<CONFIG:Debug,RelWithDebInfo>:-g1>;-O0")
