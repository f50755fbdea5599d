# The interface compiler refuses definitions it cannot turn into correct code, and says
# where and why.
set(xidlc_cases
    "unknown_type|a.xidl:3: unknown type NoSuchType"
    "obscured_number|a.xidl:3: only a wstring member can be obscured"
    "number_twice|a.xidl:7: number 1 is given twice"
    "kind_outside|a.xidl:6: A::Stranger does not derive from A::Root"
    "contains_itself|a.xidl:2: A::Outer contains itself by value"
    "bad_default|a.xidl:7: BLUE is no value of A::Color"
    "held_by_value|a.xidl:10: a polymorphic record is held through ptr<>")
foreach(case IN LISTS xidlc_cases)
    string(REPLACE "|" ";" parts "${case}")
    list(GET parts 0 name)
    list(GET parts 1 message)
    add_test(NAME xidlc.rejects.${name}
             COMMAND sh -c "\"$0\" \"$1\" --order \"$2\" --list-outputs 2>&1 && echo ACCEPTED"
                     ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/xidlc/xidlc.py
                     ${CMAKE_CURRENT_SOURCE_DIR}/data/xidlc/${name}/modules.txt)
    set_tests_properties(xidlc.rejects.${name} PROPERTIES
        PASS_REGULAR_EXPRESSION "${message}" FAIL_REGULAR_EXPRESSION "ACCEPTED")
endforeach()

# The compiler's own unit tests: the shared front end, the resolution of components, and the
# generated code of two small definitions against the code kept under tools/xidlc/tests/golden.
add_test(NAME xidlc.unittest
         COMMAND ${Python3_EXECUTABLE} -m unittest discover -s ${PROJECT_SOURCE_DIR}/tools/xidlc/tests
         WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}/tools/xidlc/tests)
