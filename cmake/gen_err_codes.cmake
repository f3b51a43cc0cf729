# Writes include/vq_glob/err_codes.h from the message table, so that the
# public names of the error codes can never drift from the codes raised.
#   cmake -DTABLE=vq_glob/error_table.cpp -DOUT=include/vq_glob/err_codes.h -P cmake/gen_err_codes.cmake
# With -DCOMPARE=<file> it also fails unless <file> equals what it wrote.
#
# Names: ERR_FAC_<FACILITY> for a facility, ERR_<FACILITY>_<IDENT> for a
# message, blanks in facility names written as "_". Where two records would
# get the same name (an ident used twice in one facility, or two facilities
# printed under one name), every one of them carries its code in hexadecimal
# as a suffix instead: ERR_FIL_DELETE_170B, ERR_FAC_SCD_8500.
cmake_minimum_required(VERSION 3.20)

if(NOT DEFINED TABLE OR NOT DEFINED OUT)
  message(FATAL_ERROR "gen_err_codes: set TABLE and OUT")
endif()

file(STRINGS "${TABLE}" lines REGEX "^    {0x")

set(message_regex "^    {0x([0-9a-fA-F]+), 0x([0-9a-fA-F]+), ([0-4]), \"([^\"]*)\", \"(.*)\"},")
set(facility_regex "^    {0x([0-9a-fA-F]+), \"([^\"]+)\"},")

function(hex_upper out value)
  string(TOUPPER "${value}" upper)
  set(${out} "${upper}" PARENT_SCOPE)
endfunction()

function(name_part out text)
  string(TOUPPER "${text}" upper)
  string(REGEX REPLACE "[^A-Z0-9]" "_" cleaned "${upper}")
  set(${out} "${cleaned}" PARENT_SCOPE)
endfunction()

# First pass: facility names and the names each record would take.
set(facility_codes "")
set(message_codes "")
foreach(line IN LISTS lines)
  if(line MATCHES "${facility_regex}")
    hex_upper(code "${CMAKE_MATCH_1}")
    name_part(name "${CMAKE_MATCH_2}")
    list(APPEND facility_codes "${code}")
    set(facility_name_${code} "${name}")
    math(EXPR count "0${count_fac_${name}} + 1")
    set(count_fac_${name} ${count})
  elseif(line MATCHES "${message_regex}")
    hex_upper(code "${CMAKE_MATCH_1}")
    hex_upper(facility "${CMAKE_MATCH_2}")
    list(APPEND message_codes "${code}")
    set(message_facility_${code} "${facility}")
    name_part(message_ident_${code} "${CMAKE_MATCH_4}")
    set(message_text_${code} "${CMAKE_MATCH_5}")
  endif()
endforeach()

# Facility prefixes, suffixed where two facilities share a printed name.
foreach(code IN LISTS facility_codes)
  set(name "${facility_name_${code}}")
  if(count_fac_${name} GREATER 1)
    set(prefix_${code} "${name}_${code}")
  else()
    set(prefix_${code} "${name}")
  endif()
endforeach()

foreach(code IN LISTS message_codes)
  set(base "ERR_${prefix_${message_facility_${code}}}_${message_ident_${code}}")
  set(base_${code} "${base}")
  math(EXPR count "0${count_msg_${base}} + 1")
  set(count_msg_${base} ${count})
endforeach()

set(body "")
foreach(code IN LISTS facility_codes)
  set(name "${prefix_${code}}")
  set(text "${facility_name_${code}}")
  string(APPEND body "#define ERR_FAC_${name} 0x${code}u\n")
endforeach()

set(previous_facility "")
foreach(code IN LISTS message_codes)
  set(facility "${message_facility_${code}}")
  if(NOT facility STREQUAL previous_facility)
    string(APPEND body "\n/* ${prefix_${facility}} (0x${facility}) */\n")
    set(previous_facility "${facility}")
  endif()
  set(name "${base_${code}}")
  if(count_msg_${name} GREATER 1)
    set(name "${name}_${code}")
  endif()
  # The template as a comment; a "*/" inside it could not stand there.
  string(REPLACE "*/" "* /" text "${message_text_${code}}")
  string(APPEND body "#define ${name} 0x${code}u /* \"${text}\" */\n")
endforeach()

set(header "/* Generated from the message table by cmake/gen_err_codes.cmake: do not edit.
 *
 * Named error codes: ERR_FAC_<FACILITY> is a facility code, ERR_<FACILITY>_<IDENT>
 * a message code (facility + a small number) with its text as a comment.
 * Where a name would repeat, every record of that name carries its code as a
 * hexadecimal suffix (ERR_FIL_DELETE_170B). Regenerate with the err-codes build target. */
#ifndef VQ_GLOB_ERR_CODES_H
#define VQ_GLOB_ERR_CODES_H

/* Facilities */
${body}
#endif /* VQ_GLOB_ERR_CODES_H */
")

file(WRITE "${OUT}" "${header}")

# With COMPARE set, fail unless that file holds exactly what was written.
if(DEFINED COMPARE)
  file(READ "${COMPARE}" committed)
  if(NOT committed STREQUAL header)
    message(FATAL_ERROR "${COMPARE} is not what the message table gives: "
      "run `cmake --build <build dir> --target err-codes` and commit the result")
  endif()
endif()
