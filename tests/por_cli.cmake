# The por commands of the tool.
if(TARGET tessel)
    set(por_data ${CMAKE_CURRENT_SOURCE_DIR}/data/por)
    set(por_check ${CMAKE_CURRENT_SOURCE_DIR}/support/tool_check.cmake)
    add_test(NAME cli.por_dump COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=por;dump;${por_data}/sample.por" -DSTATUS=0
        "-DSTDOUT=Root (Composite)\n  [Version (unsigned __int64) = 3]\n  n (unsigned long) = 5\n  name (Common::String) = x\n"
        -P ${por_check})
    add_test(NAME cli.por_dump_corrupt COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=por;dump;${por_data}/corrupt.por" -DSTATUS=1
        -DSTDOUT= "-DSTDERR=tessel: POR: Unit object '557f' is corrupted at position '2'.\n"
        -P ${por_check})
    add_test(NAME cli.por_record COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=por;record;Common::TimePeriod" -DSTATUS=0
        "-DSTDOUT=Root (Composite)\n  PeriodType (unsigned long) = 0\n  Value (unsigned long) = 0\n"
        -P ${por_check})
    add_test(NAME cli.por_record_unknown COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=por;record;Common::NoSuchType" -DSTATUS=1 -DSTDOUT=
        "-DSTDERR=tessel: no checked-in type is named Common::NoSuchType\n"
        -P ${por_check})
    add_test(NAME cli.por_record_blob COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> -DTYPE=ArchiveManagement::SliceInfo
        -DWORK=${CMAKE_CURRENT_BINARY_DIR}/por_record_blob.por
        -P ${CMAKE_CURRENT_SOURCE_DIR}/por/record_blob_check.cmake)
endif()
