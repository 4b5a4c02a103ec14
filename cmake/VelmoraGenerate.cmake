# velmora_generate(TARGET SCHEMA file.json [NAME base])
# Runs velmora-gen (the target Velmora::velmora-gen) on the schema at build
# time and adds the generated BASE.h and BASE.cpp to TARGET; BASE defaults
# to the schema file's name. The header's directory is on TARGET's public
# include path, so targets linking TARGET see it too.
function(velmora_generate target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "SCHEMA;NAME" "")
  if(NOT arg_SCHEMA)
    message(FATAL_ERROR "velmora_generate: SCHEMA is required")
  endif()
  get_filename_component(schema "${arg_SCHEMA}" ABSOLUTE)
  set(base "${arg_NAME}")
  if(NOT base)
    get_filename_component(base "${schema}" NAME_WE)
  endif()
  set(dir "${CMAKE_CURRENT_BINARY_DIR}/velmora_generated/${target}")
  file(MAKE_DIRECTORY "${dir}")
  add_custom_command(
    OUTPUT "${dir}/${base}.h" "${dir}/${base}.cpp"
    COMMAND Velmora::velmora-gen --output-dir "${dir}" --name "${base}"
            "${schema}"
    DEPENDS "${schema}" Velmora::velmora-gen
    COMMENT "Generating ${base}.h and ${base}.cpp from ${arg_SCHEMA}"
    VERBATIM)
  target_sources(${target} PRIVATE "${dir}/${base}.h" "${dir}/${base}.cpp")
  target_include_directories(${target} PUBLIC "${dir}")
endfunction()
