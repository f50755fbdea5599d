# Generates every remote component from its definition in xidl/components: the public
# interfaces, proxies, request makers, component information, the factory table, the
# catalogue of methods and the service-side dispatchers. Parameter types resolve against
# the record definitions, so those are inputs too.
set(TL_COMPONENTS_DIR ${PROJECT_SOURCE_DIR}/xidl/components)
set(TL_COMPONENTS_GENERATOR ${PROJECT_SOURCE_DIR}/tools/xidlc/xidl_components.py)
file(GLOB TL_COMPONENT_FILES CONFIGURE_DEPENDS ${TL_COMPONENTS_DIR}/*.xidl)
file(GLOB TL_COMPONENT_RECORD_FILES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/xidl/*.xidl)
file(GLOB TL_COMPONENT_GENERATOR_SOURCES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tools/xidlc/*.py)
# The generator decides which files come out, so a change of it reconfigures too.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/xidl/modules.txt ${TL_COMPONENT_FILES} ${TL_COMPONENT_GENERATOR_SOURCES})

set(tl_components_args
    --order ${PROJECT_SOURCE_DIR}/xidl/modules.txt --components ${TL_COMPONENTS_DIR})
execute_process(
    COMMAND ${Python3_EXECUTABLE} ${TL_COMPONENTS_GENERATOR} ${tl_components_args} --list-outputs
    OUTPUT_VARIABLE tl_components_outputs
    ERROR_VARIABLE tl_components_error
    RESULT_VARIABLE tl_components_result
    OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT tl_components_result EQUAL 0)
    message(FATAL_ERROR "The component definitions do not compile:\n${tl_components_error}")
endif()

set(TL_COMPONENTS_GENERATED)
set(TL_COMPONENTS_SOURCES)
foreach(out IN LISTS tl_components_outputs)
    list(APPEND TL_COMPONENTS_GENERATED ${TL_GENERATED_DIR}/${out})
    if(out MATCHES "\\.cpp$")
        list(APPEND TL_COMPONENTS_SOURCES ${TL_GENERATED_DIR}/${out})
    endif()
endforeach()

# Only files whose text changed are rewritten, so an edit of one component recompiles
# only the units that hold it.
set(TL_COMPONENTS_STAMP ${TL_GENERATED_DIR}/xidl/components/generated.stamp)
add_custom_command(
    OUTPUT ${TL_COMPONENTS_STAMP}
    BYPRODUCTS ${TL_COMPONENTS_GENERATED}
    COMMAND ${Python3_EXECUTABLE} ${TL_COMPONENTS_GENERATOR} ${tl_components_args} --out ${TL_GENERATED_DIR}
    COMMAND ${CMAKE_COMMAND} -E touch ${TL_COMPONENTS_STAMP}
    DEPENDS ${PROJECT_SOURCE_DIR}/xidl/modules.txt ${TL_COMPONENT_FILES} ${TL_COMPONENT_RECORD_FILES}
            ${TL_COMPONENT_GENERATOR_SOURCES}
    COMMENT "Generating components from their definitions"
    VERBATIM)
# The stamp is listed too, so that hand-written units that include generated headers
# compile only after the generator has run.
list(APPEND TL_GENERATED_SOURCES ${TL_COMPONENTS_SOURCES} ${TL_COMPONENTS_STAMP})
# Line tables are enough debug information for generated proxies and dispatchers.
set_source_files_properties(${TL_COMPONENTS_SOURCES} PROPERTIES
    COMPILE_OPTIONS "$<$<CONFIG:Debug,RelWithDebInfo>:-g1>")
# A proxy method waits for the network; full optimisation of some four hundred of them
# triples their build time and gains nothing. Marshalling arguments (signatures_*)
# and serving (services_*) keep the optimisation of the build.
set(tl_components_light ${TL_COMPONENTS_SOURCES})
list(FILTER tl_components_light EXCLUDE REGEX "/(signatures|services)_[0-9]+\\.cpp$")
set_source_files_properties(${tl_components_light} PROPERTIES
    COMPILE_OPTIONS "$<$<CONFIG:Debug,RelWithDebInfo>:-g1>;$<$<CONFIG:Release,RelWithDebInfo>:-O1>")
