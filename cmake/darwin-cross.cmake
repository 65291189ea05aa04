# SPDX-License-Identifier: MIT

# Toolchain for building the macOS executable on Linux: clang, LLVM's linker for Mach-O, and the SDK
# that host/darwin-sdk/assemble.py puts together. See script/macos, which passes
#
#   QUOBE_DARWIN_SDK             folder of that SDK
#   CMAKE_OSX_ARCHITECTURES      one of x86_64 and arm64; script/macos joins the two
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR "${CMAKE_OSX_ARCHITECTURES}")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES QUOBE_DARWIN_SDK)

set(llvm 19)
set(CMAKE_C_COMPILER clang-${llvm})
set(CMAKE_CXX_COMPILER clang++-${llvm})
set(CMAKE_ASM_COMPILER clang-${llvm})
foreach(language C CXX ASM)
  set(CMAKE_${language}_COMPILER_TARGET ${CMAKE_OSX_ARCHITECTURES}-apple-macos)
endforeach()
foreach(tool AR NM OTOOL RANLIB STRIP INSTALL_NAME_TOOL)
  string(TOLOWER "llvm-${tool}-${llvm}" program)
  string(REPLACE "_" "-" program "${program}")
  find_program(CMAKE_${tool} ${program} REQUIRED)
endforeach()
find_program(linker ld64.lld-${llvm} REQUIRED)

set(CMAKE_OSX_SYSROOT "${QUOBE_DARWIN_SDK}")
# For everything except the product, which has its own (QuobeTargets.cmake).
set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
# The SDK has no C++ library, so nothing linked here may use one. The linker signs arm64 code ad hoc
# by itself, and x86-64 code on request.
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT
    "-fuse-ld=lld --ld-path=${linker} -nostdlib++ -Wl,-adhoc_codesign")
endforeach()

# Find programs on this machine, and nothing else.
set(CMAKE_FIND_ROOT_PATH "${QUOBE_DARWIN_SDK}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
