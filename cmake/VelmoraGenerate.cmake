# velmora_generate(TARGET SCHEMA file.json [NAME base] [PARTS n])
# Runs velmora-gen (the target Velmora::velmora-gen) on the schema at build
# time and adds the generated BASE.h and BASE.cpp to TARGET; BASE defaults
# to the schema file's name. The header's directory is on TARGET's public
# include path, so targets linking TARGET see it too.
# A schema of more than 30 records gets its source as several files,
# BASE.cpp, BASE_2.cpp, ... BASE_N.cpp (one per 30 records), all added to
# TARGET so that they compile in parallel; PARTS n asks for n files (1: one
# file, however big). Without PARTS the count is read from the schema when
# CMake configures, so a change to the schema configures again. A file
# whose text a change leaves alone keeps its time and is not compiled again.
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

# The files velmora-gen writes a schema's source as by default: one per 30
# records, as it counts them itself.
function(_velmora_generate_parts schema out)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${schema}")
  file(READ "${schema}" json)
  # A schema that is not JSON is reported by the generator, at build time.
  string(JSON records ERROR_VARIABLE error LENGTH "${json}" records)
  if(error OR NOT records MATCHES "^[0-9]+$")
    set(records 0)
  endif()
  math(EXPR parts "(${records} + 29) / 30")
  if(parts LESS 1)
    set(parts 1)
  endif()
  set(${out} ${parts} PARENT_SCOPE)
endfunction()
