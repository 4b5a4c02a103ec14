# velmora_generate(TARGET SCHEMA file.json [NAME base] [PARTS n])
# Runs velmora-gen (the target Velmora::velmora-gen) on the schema at build
# time and adds the generated BASE.h and BASE.cpp to TARGET; BASE defaults
# to the schema file's name. The header's directory is on TARGET's public
# include path, so targets linking TARGET see it too.
# A big schema gets its source as several files, BASE.cpp, BASE_2.cpp, ...
# BASE_N.cpp, all added to TARGET so that they compile in parallel: as
# many as velmora-gen writes by default (one per 2000 of weight, see
# _velmora_generate_parts), counted from the schema when CMake configures,
# so a change to the schema configures again. PARTS n asks for n files (1:
# one file, however big); a schema that does not exist when CMake
# configures (made by the build) needs it to be split. A file whose text a
# change leaves alone keeps its time and is not compiled again.
function(velmora_generate target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "SCHEMA;NAME;PARTS" "")
  if(NOT arg_SCHEMA)
    message(FATAL_ERROR "velmora_generate: SCHEMA is required")
  endif()
  get_filename_component(schema "${arg_SCHEMA}" ABSOLUTE)
  set(base "${arg_NAME}")
  if(NOT base)
    get_filename_component(base "${schema}" NAME_WE)
  endif()
  set(parts "${arg_PARTS}")
  if(NOT parts)
    _velmora_generate_parts("${schema}" parts)
  endif()
  set(dir "${CMAKE_CURRENT_BINARY_DIR}/velmora_generated/${target}")
  set(sources "${dir}/${base}.cpp")
  if(parts GREATER 1)
    foreach(i RANGE 2 ${parts})
      list(APPEND sources "${dir}/${base}_${i}.cpp")
    endforeach()
  endif()
  file(MAKE_DIRECTORY "${dir}")
  # The generator rewrites only the files that change: the stamp, not
  # them, tells the build when it last ran.
  add_custom_command(
    OUTPUT "${dir}/${base}.stamp"
    BYPRODUCTS "${dir}/${base}.h" ${sources}
    COMMAND Velmora::velmora-gen --output-dir "${dir}" --name "${base}"
            --parts ${parts} "${schema}"
    COMMAND ${CMAKE_COMMAND} -E touch "${dir}/${base}.stamp"
    DEPENDS "${schema}" Velmora::velmora-gen
    COMMENT "Generating ${base}.h and ${parts} source file(s) from ${arg_SCHEMA}"
    VERBATIM)
  target_sources(${target} PRIVATE "${dir}/${base}.stamp" "${dir}/${base}.h"
                                   ${sources})
  target_include_directories(${target} PUBLIC "${dir}")
endfunction()

# The files velmora-gen writes a schema's source as by default, counted as
# it counts them (tools/gen/parts.cpp; the gen.schemas test holds the two
# to one count): a record weighs 40, each of its fields 1, an operation 6;
# one file per 2000, rounded up, at most one per record and operation.
function(_velmora_generate_parts schema out)
  if(NOT EXISTS "${schema}")
    message(STATUS "velmora_generate: ${schema} is not there yet: its source "
                   "is one file (PARTS n splits it)")
    set(${out} 1 PARENT_SCOPE)
    return()
  endif()
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${schema}")
  file(READ "${schema}" json)
  # A schema that is not JSON is reported by the generator, at build time.
  string(JSON operations ERROR_VARIABLE error LENGTH "${json}" operations)
  if(error OR NOT operations MATCHES "^[0-9]+$")
    set(operations 0)
  endif()
  _velmora_generate_records("${json}" records fields)
  math(EXPR weight "40 * ${records} + ${fields} + 6 * ${operations}")
  math(EXPR parts "(${weight} + 1999) / 2000")
  math(EXPR items "${records} + ${operations}")
  if(parts GREATER items)
    set(parts ${items})
  endif()
  if(parts LESS 1)
    set(parts 1)
  endif()
  set(${out} ${parts} PARENT_SCOPE)
endfunction()

# The schema's records and their fields, counted. Each string(JSON) call
# parses its whole input: the records are cut apart first, from the
# layout string(JSON GET) writes (a member a line, two spaces an indent),
# so that a schema of 1,000 records is not parsed 1,000 times.
function(_velmora_generate_records json records_out fields_out)
  set(records 0)
  set(fields 0)
  string(JSON text ERROR_VARIABLE error GET "${json}" records)
  if(error)
    set(text "")
  endif()
  # One record a line, and as a CMake list: ";" and brackets, only ever
  # within strings, written as JSON escapes.
  string(REPLACE ";" "\\u003b" text "${text}")
  string(REPLACE "[" "\\u005b" text "${text}")
  string(REPLACE "]" "\\u005d" text "${text}")
  string(REGEX REPLACE "\n(   |  [{}])" " \\1" text "${text}")
  string(REPLACE "\n" ";" lines "${text}")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^  \"([^\"\\\\]|\\\\.)*\" : (.*[^,]),?$" "\\2"
           record "${line}")
    if(record STREQUAL line)
      continue()
    endif()
    math(EXPR records "${records} + 1")
    # Fields as an object, or {"fields": {...}, "c_name": N, "doc": D}.
    string(JSON type ERROR_VARIABLE error TYPE "${record}" fields)
    if(type STREQUAL "OBJECT")
      string(JSON record GET "${record}" fields)
    endif()
    string(JSON count ERROR_VARIABLE error LENGTH "${record}")
    if(count MATCHES "^[0-9]+$")
      math(EXPR fields "${fields} + ${count}")
    endif()
  endforeach()
  set(${records_out} ${records} PARENT_SCOPE)
  set(${fields_out} ${fields} PARENT_SCOPE)
endfunction()
