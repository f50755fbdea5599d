# The generated record and component units all begin with the same standard containers and
# codec templates; parsing those is half the cost of a small unit. They share one
# precompiled header of them. The message table goes without it, and so do the creators of
# default unit trees, which are built without optimisation (a header precompiled with it
# would not fit them).
set(tl_pch_users ${TL_XIDL_SOURCES} ${TL_COMPONENTS_SOURCES})
list(FILTER tl_pch_users EXCLUDE REGEX "/por_types\\.cpp$")
set(tl_pch_others ${TL_GENERATED_SOURCES})
list(REMOVE_ITEM tl_pch_others ${tl_pch_users})
set_source_files_properties(${tl_pch_others} TARGET_DIRECTORY tessel_link_objects
    PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
target_precompile_headers(tessel_link_objects PRIVATE
    <cstdint> <list> <map> <memory> <set> <string> <vector>
    <tessel_link/impl/serialize/codec.h>
    <tessel_link/impl/serialize/record_meta.h>
    <tessel_link/xidl/catalogue.h>
    <tessel_link/impl/binding/argument_type.h>)
