# Compares what the libraries export with the kept list; a difference is a change of the interface.
# Templates and inline functions, which every user compiles anew, are left out.
execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARIES}
  OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\n" ";" lines "${output}")
list(FILTER lines INCLUDE REGEX "^[0-9a-f]+ [TBDR] ")
# Which of these are strong symbols is the compiler's choice.
list(FILTER lines EXCLUDE REGEX " (typeinfo|vtable|VTT|construction vtable) |thunk to")
# One line for a class or a namespace and its functions.
list(TRANSFORM lines REPLACE "^[0-9a-f]+ . " "")
list(TRANSFORM lines REPLACE "\\[abi:cxx11\\]|\\(.*" "")
list(TRANSFORM lines REPLACE "::~?[A-Za-z_]+$" "" REGEX "^Kestro::.*::")
list(SORT lines)
list(REMOVE_DUPLICATES lines)
list(JOIN lines "\n" exported)
string(APPEND exported "\n")

file(READ ${LIST} kept)
if(NOT exported STREQUAL kept)
  set(now ${CMAKE_CURRENT_BINARY_DIR}/exported_symbols.txt)
  file(WRITE ${now} "${exported}")
  execute_process(COMMAND diff -u ${LIST} ${now})
  message(FATAL_ERROR "The exported symbols are not those of ${LIST}. "
    "If the interface was meant to change, copy ${now} there.")
endif()
