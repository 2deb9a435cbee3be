# The README's API section must show the code of examples/api/main.cpp between
# its "[readme-begin]" and "[readme-end]" marks, as it stands, so that the
# README never shows code that does not build.
file(READ ${SOURCE_DIR}/examples/api/main.cpp source)
file(READ ${SOURCE_DIR}/README.md readme)
string(FIND "${source}" "// [readme-begin]\n" begin)
string(FIND "${source}" "    // [readme-end]" end)
if(begin EQUAL -1 OR end EQUAL -1)
  message(FATAL_ERROR "examples/api/main.cpp lacks its readme marks")
endif()
string(LENGTH "// [readme-begin]\n" mark)
math(EXPR from "${begin} + ${mark}")
math(EXPR length "${end} - ${from}")
string(SUBSTRING "${source}" ${from} ${length} excerpt)
# The README indents the excerpt by four blanks less. (No "^" in the pattern:
# CMake lets it match again wherever the previous match ended.)
string(REGEX REPLACE "\n    " "\n" excerpt "\n${excerpt}")
string(SUBSTRING "${excerpt}" 1 -1 excerpt)
string(FIND "${readme}" "${excerpt}" found)
if(found EQUAL -1)
  message(FATAL_ERROR "README.md does not show the code of examples/api/main.cpp between its readme marks:\n${excerpt}")
endif()
message(STATUS "README shows the API example as built")
