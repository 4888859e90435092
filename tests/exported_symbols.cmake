cmake_minimum_required(VERSION 3.25)

# The libraries export names of the public interface alone: what else gets out becomes an interface by
# accident. A public name that is missing fails where programs are linked.
execute_process(COMMAND ${NM} -DC --defined-only ${LIBRARIES}
  OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\n" ";" symbols "${output}")
# Weak symbols are templates and inline functions, which every program compiles itself.
list(FILTER symbols INCLUDE REGEX "^[0-9a-f]+ [TBDR] ")
if(NOT symbols)
  message(FATAL_ERROR "no symbols found")
endif()
list(TRANSFORM symbols REPLACE "^[0-9a-f]+ . ((typeinfo|typeinfo name|vtable|VTT|construction vtable|non-virtual thunk|virtual thunk) (for|to) )?" "")
list(FILTER symbols EXCLUDE REGEX
  "^(Kestro::|std::ostream-in-Kestro::|basepp::dbg::debug\\(|basepp_dbg_mask_$|db_[a-z_]+$|kydb_escape_string\\(|string2list\\()")
if(symbols)
  list(JOIN symbols "\n" symbols)
  message(FATAL_ERROR "exported, and no part of the public interface:\n${symbols}")
endif()
