# Writes the main page of the API reference: the README's section on using the library
# from a host, with its headings one level up (run with cmake -P).
#
#   cmake -DREADME=README.md -DOUT=mainpage.md -P DocsMainPage.cmake
file(READ ${README} text)
set(heading "## Using the library from a host\n")
string(FIND "${text}" "${heading}" start)
if(start LESS 0)
    message(FATAL_ERROR "${README} has no section \"Using the library from a host\"")
endif()
string(SUBSTRING "${text}" ${start} -1 section)
string(LENGTH "${heading}" heading_length)
string(SUBSTRING "${section}" ${heading_length} -1 rest)
string(FIND "${rest}" "\n## " end)
if(end GREATER_EQUAL 0)
    string(SUBSTRING "${rest}" 0 ${end} rest)
endif()
string(REGEX REPLACE "\n###" "\n##" rest "${rest}")
file(WRITE ${OUT} "# Using the library from a host\n${rest}\n")
