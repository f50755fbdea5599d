# The xml dump command of the tool: JSON of text and binary documents, and a failed read.
if(TARGET tessel)
    set(xml_data ${CMAKE_CURRENT_SOURCE_DIR}/data/xml)
    set(xml_check ${CMAKE_CURRENT_SOURCE_DIR}/support/tool_check.cmake)
    add_test(NAME cli.xml_dump_json COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=xml;dump;${xml_data}/sample.xml;--json" -DSTATUS=0
        "-DSTDOUT={\"name\": \"root\", \"attributes\": {\"version\": \"2\"}, \"text\": [\"\", \" \", \" \", \"\"], \"children\": [{\"name\": \"Name\", \"attributes\": {}, \"text\": [\"caf\\u00e9 & \\ud83d\\ude00\"], \"children\": []}, {\"name\": \"Lone\", \"attributes\": {}, \"text\": [\"\\ud800\"], \"children\": []}, {\"name\": \"Empty\", \"attributes\": {}, \"text\": [\"\"], \"children\": []}]}\n"
        -P ${xml_check})
    add_test(NAME cli.xml_dump_binary COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=xml;dump;${xml_data}/sample.bxml;--json" -DSTATUS=0
        "-DSTDOUT={\"name\": \"a\", \"attributes\": {\"x\": \"1\"}, \"text\": [\"t\"], \"children\": []}\n"
        -P ${xml_check})
    add_test(NAME cli.xml_dump_failure COMMAND ${CMAKE_COMMAND}
        -DTOOL=$<TARGET_FILE:tessel> "-DARGS=xml;dump;${xml_data}/mismatched.xml" -DSTATUS=1
        -DSTDOUT= "-DSTDERR=line 2 column 4\n" -P ${xml_check})
endif()
