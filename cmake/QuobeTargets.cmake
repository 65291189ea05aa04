# SPDX-License-Identifier: MIT

# How every target of the project is compiled.
#
#   quobe_product_library(name sources...)  a static library of product code: no exceptions, no RTTI,
#                                           nothing exported unless the source says so. Other projects
#                                           link it as quobe::<name without quobe_>.
#   quobe_program_options(target)           the same warnings for everything else (sim, tests, bench)
#   quobe_export_list(target names.inc)     link an executable so that it exports exactly those names
#   quobe_tool_beside(library)              put the tool and quobe-options into the probe library's folder

set(QUOBE_SANITIZE "" CACHE STRING "Value for -fsanitize=, empty for none")

# Headers are included by their path from the root of the project, in quotes. A name in angle brackets
# is not searched for there: it is always the system's.
add_library(quobe_headers INTERFACE)
target_compile_options(quobe_headers INTERFACE "$<BUILD_INTERFACE:-iquote${PROJECT_SOURCE_DIR}>")
target_include_directories(quobe_headers INTERFACE "$<INSTALL_INTERFACE:include/quobe>")

add_library(quobe_options INTERFACE)
target_link_libraries(quobe_options INTERFACE quobe_headers)
target_compile_features(quobe_options INTERFACE cxx_std_20)
target_compile_options(quobe_options INTERFACE
  $<$<COMPILE_LANGUAGE:C,CXX>:-Wall -Wextra -Wconversion -Wshadow -Wundef -Wcast-align -Wformat=2>
  $<$<AND:$<BOOL:${QUOBE_WERROR}>,$<COMPILE_LANGUAGE:C,CXX>>:-Werror>)
# What users get must not depend on the folder it was built in.
target_compile_options(quobe_options INTERFACE
  "$<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>")
if(QUOBE_SANITIZE)
  target_compile_options(quobe_options INTERFACE
    -fsanitize=${QUOBE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(quobe_options INTERFACE -fsanitize=${QUOBE_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC's flow warnings have false positives in instrumented code.
    target_compile_options(quobe_options INTERFACE
      $<$<COMPILE_LANGUAGE:C,CXX>:-Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-array-bounds>)
  endif()
endif()

add_library(quobe_product_options INTERFACE)
target_link_libraries(quobe_product_options INTERFACE quobe_options)
target_compile_options(quobe_product_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
# The oldest macOS that the product runs on. For arm64 the compiler raises it to 11.0, the first one.
# Tests are built for the system at hand, as their libraries are. So each product executable repeats
# this option when it is linked: as a property of the libraries it would reach the tests too.
set(QUOBE_OLDEST_MACOS -mmacosx-version-min=10.13)
if(APPLE)
  target_compile_options(quobe_product_options INTERFACE ${QUOBE_OLDEST_MACOS})
endif()

# The Darwin calls: the system itself on macOS, the stand-in elsewhere.
add_library(quobe_platform INTERFACE)
if(APPLE)
  target_link_libraries(quobe_platform INTERFACE "-framework CoreFoundation" "-framework IOKit")
else()
  target_link_libraries(quobe_platform INTERFACE quobe_host)
endif()

find_package(Threads REQUIRED)

function(quobe_product_library name)
  add_library(${name} STATIC ${ARGN})
  string(REGEX REPLACE "^quobe_" "quobe::" alias ${name})
  add_library(${alias} ALIAS ${name})
  target_link_libraries(${name} PRIVATE $<BUILD_INTERFACE:quobe_product_options>
    PUBLIC quobe_headers quobe_platform)
  target_compile_features(${name} PUBLIC cxx_std_20)
  set_target_properties(${name} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
endfunction()

function(quobe_program_options target)
  target_link_libraries(${target} PRIVATE quobe_options)
endfunction()

# Writes the list in the format of the system's linker when the build is configured.
function(quobe_export_list target names_inc)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${names_inc}")
  file(STRINGS "${names_inc}" lines REGEX "^FORWARD\\(")
  set(elf "{\n")
  set(macho "")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "^FORWARD\\(([A-Za-z0-9_]+)\\).*" "\\1" name "${line}")
    string(APPEND elf "  ${name};\n")
    string(APPEND macho "_${name}\n")
  endforeach()
  string(APPEND elf "};\n")
  if(APPLE)
    set(list_file "${CMAKE_CURRENT_BINARY_DIR}/${target}_exports.txt")
    file(CONFIGURE OUTPUT "${list_file}" CONTENT "${macho}" @ONLY)
    target_link_options(${target} PRIVATE "-Wl,-exported_symbols_list,${list_file}")
  else()
    set(list_file "${CMAKE_CURRENT_BINARY_DIR}/${target}_exports.ld")
    file(CONFIGURE OUTPUT "${list_file}" CONTENT "${elf}" @ONLY)
    target_link_options(${target} PRIVATE "-Wl,--dynamic-list=${list_file}")
  endif()
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${list_file}")
endfunction()

function(quobe_tool_beside library)
  add_custom_target(${library}_tool ALL
    COMMAND ${CMAKE_COMMAND} -E copy_if_different
      $<TARGET_FILE:quobe-unlock> $<TARGET_FILE:quobe-options> $<TARGET_FILE_DIR:${library}>
    DEPENDS quobe-unlock quobe-options ${library})
endfunction()
