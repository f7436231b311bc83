# quarn_embed_file(<target> <input> <output-name.inc>): makes the bytes of the file <input> part of <target>.
#
# The build writes <output-name.inc>, the bytes as comma-separated numbers, where the sources of <target>
# find it by that name:
#   constexpr unsigned char kBytes[] = {
#   #include "output-name.inc"
#   };
# Included by a list file this defines the function; run as a script it does the writing, so that a build
# needs no tool besides CMake.

if(CMAKE_SCRIPT_MODE_FILE)
  file(READ "${INPUT}" bytes HEX)
  string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
  file(WRITE "${OUTPUT}" "${bytes}\n")
  return()
endif()

set(QUARN_EMBED_SCRIPT "${CMAKE_CURRENT_LIST_FILE}")

function(quarn_embed_file target input output_name)
  get_filename_component(input "${input}" ABSOLUTE)
  set(directory "${CMAKE_CURRENT_BINARY_DIR}/embedded")
  set(output "${directory}/${output_name}")
  add_custom_command(
    OUTPUT "${output}"
    COMMAND "${CMAKE_COMMAND}" "-DINPUT=${input}" "-DOUTPUT=${output}" -P "${QUARN_EMBED_SCRIPT}"
    DEPENDS "${input}" "${QUARN_EMBED_SCRIPT}"
    COMMENT "Embedding ${output_name}"
    VERBATIM)
  target_sources(${target} PRIVATE "${output}")
  target_include_directories(${target} PRIVATE "${directory}")
endfunction()
