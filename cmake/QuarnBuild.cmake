# Settings that every target of the tree shares, and the way a directory becomes a library.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")

# Where the wizard is installed, below the prefix; the launcher in bin/ and the kit tool look there.
set(QUARN_WIZARD_FOLDER libexec/quarn-setup)

option(QUARN_WERROR "Treat warnings as errors" OFF)
set(QUARN_SANITIZE "" CACHE STRING "Sanitizers to build with, for example address,undefined")
option(QUARN_COVERAGE "Build for line coverage" OFF)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE_PROGRAM}")
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion)
if(QUARN_WERROR)
  add_compile_options(-Werror)
endif()
if(QUARN_SANITIZE)
  add_compile_options(-fsanitize=${QUARN_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${QUARN_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC loses track of unions in instrumented code and warns of reads that cannot happen.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
  if(QUARN_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()
if(QUARN_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
endif()

# Files are included as "directory/file.h". Every library exposes only its own directory under that
# name, so a file can include nothing but the libraries that its target links.
function(quarn_expose target directory)
  set(root "${CMAKE_BINARY_DIR}/include/${directory}")
  get_filename_component(parent "${root}/${directory}" DIRECTORY)
  file(MAKE_DIRECTORY "${parent}")
  file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${directory}" "${root}/${directory}" SYMBOLIC)
  target_include_directories(${target} PUBLIC "${root}")
endfunction()

# quarn_platform_sources(<target> <name>...): of each <name> the platform's file, <name>_mac.cc on macOS
# and <name>_linux.cc elsewhere.
function(quarn_platform_sources target)
  if(APPLE)
    list(TRANSFORM ARGN APPEND _mac.cc)
  else()
    list(TRANSFORM ARGN APPEND _linux.cc)
  endif()
  target_sources(${target} PRIVATE ${ARGN})
endfunction()

# quarn_library(<directory> SOURCES ... [DEPENDS ...]): the library of one directory, as quarn::<directory>;
# that of "a/b" is quarn::a_b.
function(quarn_library directory)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  string(REPLACE "/" "_" name ${directory})
  add_library(quarn_${name} STATIC ${ARG_SOURCES})
  add_library(quarn::${name} ALIAS quarn_${name})
  quarn_expose(quarn_${name} ${directory})
  set_target_properties(quarn_${name} PROPERTIES QUARN_DIRECTORY ${directory})
  target_link_libraries(quarn_${name} PUBLIC ${ARG_DEPENDS})
endfunction()
