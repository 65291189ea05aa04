# SPDX-License-Identifier: MIT

# The peers that benchmarks compare with, each a target bench_peer_<name> if it is installed. Nothing
# else needs them.
find_package(PkgConfig QUIET)

function(quobe_peer_by_pkgconfig name)
  if(PkgConfig_FOUND)
    pkg_check_modules(BENCH_${name} QUIET IMPORTED_TARGET ${ARGN})
    if(BENCH_${name}_FOUND)
      add_library(bench_peer_${name} INTERFACE)
      target_link_libraries(bench_peer_${name} INTERFACE PkgConfig::BENCH_${name})
    endif()
  endif()
endfunction()

function(quobe_peer_by_header name header)
  find_path(BENCH_${name}_INCLUDE ${header} ${ARGN})
  mark_as_advanced(BENCH_${name}_INCLUDE)
  if(BENCH_${name}_INCLUDE)
    add_library(bench_peer_${name} INTERFACE)
    target_include_directories(bench_peer_${name} SYSTEM INTERFACE "${BENCH_${name}_INCLUDE}")
  endif()
endfunction()

quobe_peer_by_pkgconfig(fmt fmt)
quobe_peer_by_pkgconfig(absl absl_str_format absl_strings)
quobe_peer_by_pkgconfig(volk volk)
quobe_peer_by_pkgconfig(hwy libhwy)
quobe_peer_by_pkgconfig(protobuf protobuf-lite)
quobe_peer_by_pkgconfig(pugixml pugixml)
quobe_peer_by_pkgconfig(glib glib-2.0)
quobe_peer_by_pkgconfig(sqlite3 sqlite3)
quobe_peer_by_pkgconfig(apr apr-1)
quobe_peer_by_header(stb stb/stb_sprintf.h)
quobe_peer_by_header(llvm llvm/Support/LEB128.h
  PATHS /usr/lib/llvm-14/include /usr/lib/llvm-15/include /usr/lib/llvm-19/include)
quobe_peer_by_header(boost boost/dynamic_bitset.hpp)
quobe_peer_by_header(rapidxml rapidxml/rapidxml.hpp)

# quobe_peer_bench(name sources... [LIBS libs...] [PEERS peers...])
#
# A program that script/bench runs: see support/peer_bench.h. Sources find out which peers are there
# by the macros BENCH_HAS_FMT, BENCH_HAS_STB and so on, 1 or 0. Built by the target peer_benches, not
# by default.
function(quobe_peer_bench name)
  cmake_parse_arguments(arg "" "" "LIBS;PEERS" ${ARGN})
  add_executable(${name} EXCLUDE_FROM_ALL ${arg_UNPARSED_ARGUMENTS})
  quobe_program_options(${name})
  target_link_libraries(${name} PRIVATE peer_bench ${arg_LIBS})
  # The position of a loop in memory must not decide a comparison.
  target_compile_options(${name} PRIVATE -falign-functions=64 -falign-loops=32)
  foreach(peer IN LISTS arg_PEERS)
    string(TOUPPER ${peer} upper)
    if(TARGET bench_peer_${peer})
      target_link_libraries(${name} PRIVATE bench_peer_${peer})
      target_compile_definitions(${name} PRIVATE BENCH_HAS_${upper}=1)
    else()
      target_compile_definitions(${name} PRIVATE BENCH_HAS_${upper}=0)
      message(STATUS "${name}: left out, not installed: ${peer}")
      file(APPEND "${PROJECT_BINARY_DIR}/bench/left_out.txt" "${name}: ${peer}\n")
    endif()
  endforeach()
  add_dependencies(peer_benches ${name})
  file(APPEND "${PROJECT_BINARY_DIR}/bench/programs.txt" "${name}\n")
endfunction()
