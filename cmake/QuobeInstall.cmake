# SPDX-License-Identifier: MIT

# What cmake --install leaves, by component:
#
#   tool         the tool for the maker's probe library
#   adapters     the tool with the probe library over debug adapters
#   simulator    the tool with the simulated probe, and quobe-bench
#   companions   programs beside the tool
#   development  UTIL and SYS: headers, static libraries, CMake and pkg-config files
#   documents    docs/, the licence, the list of third parties
#
# The tool takes the probe library beside its executable. So each probe library has a folder below
# libexec/quobe with a tool of its own, and bin/ has links only: a probe library of ours in bin/ would be
# taken for the maker's. libexec/quobe/maker is the place for the maker's, where the system has no other.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The day of the sources: SOURCE_DATE_EPOCH's, or today.
string(TIMESTAMP QUOBE_DATE "%Y-%m-%d" UTC)

set(QUOBE_LIBEXEC "${CMAKE_INSTALL_LIBEXECDIR}/quobe")
set(QUOBE_DOCUMENTS "${CMAKE_INSTALL_DATAROOTDIR}/doc/quobe")
set(staging "${PROJECT_BINARY_DIR}/install")
file(MAKE_DIRECTORY "${staging}")

# A link in bin/ to a program in a probe library's folder.
function(quobe_install_link component link folder program)
  file(RELATIVE_PATH target "${CMAKE_INSTALL_FULL_BINDIR}"
    "${CMAKE_INSTALL_FULL_LIBEXECDIR}/quobe/${folder}/${program}")
  file(CREATE_LINK "${target}" "${staging}/${link}" SYMBOLIC)
  install(FILES "${staging}/${link}" DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${component})
endfunction()

# quobe-unlock and its companions in a probe library's folder. Beside the maker's library the companions
# are a component of their own.
function(quobe_install_programs component folder suffix)
  install(TARGETS quobe-unlock RUNTIME DESTINATION "${QUOBE_LIBEXEC}/${folder}" COMPONENT ${component})
  quobe_install_link(${component} quobe-unlock${suffix} ${folder} quobe-unlock)
  if(component STREQUAL "tool")
    set(component companions)
  endif()
  install(TARGETS quobe-options RUNTIME DESTINATION "${QUOBE_LIBEXEC}/${folder}" COMPONENT ${component})
  quobe_install_link(${component} quobe-options${suffix} ${folder} quobe-options)
  # Modes are not taken from the sources: those depend on who has checked them out.
  install(PROGRAMS line/quobe-line DESTINATION "${QUOBE_LIBEXEC}/${folder}" COMPONENT ${component})
  install(PROGRAMS line/quobe_line/lane DESTINATION "${QUOBE_LIBEXEC}/${folder}/quobe_line"
    COMPONENT ${component})
  install(DIRECTORY line/quobe_line DESTINATION "${QUOBE_LIBEXEC}/${folder}" COMPONENT ${component}
    FILES_MATCHING PATTERN "*.py" PATTERN __pycache__ EXCLUDE)
  quobe_install_link(${component} quobe-line${suffix} ${folder} quobe-line)
endfunction()

# -- Programs ------------------------------------------------------------------------------------

quobe_install_programs(tool maker "")
quobe_install_programs(adapters openocd -openocd)
install(TARGETS quobearm_openocd LIBRARY DESTINATION "${QUOBE_LIBEXEC}/openocd" COMPONENT adapters)
if(TARGET quobearm)
  quobe_install_programs(simulator simulator -sim)
  install(TARGETS quobearm LIBRARY DESTINATION "${QUOBE_LIBEXEC}/simulator" COMPONENT simulator)
  install(TARGETS quobe-bench RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT simulator)
endif()

# -- Man pages and completions -------------------------------------------------------------------

# A man page, named by its command, for some of the commands that it is about.
function(quobe_install_man component page)
  configure_file(man/${page}.1.in "${staging}/${page}.1" @ONLY)
  install(FILES "${staging}/${page}.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT ${component})
endfunction()

# Where zsh looks: Debian's packages have a folder of their own.
set(zsh_folder zsh/site-functions)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(zsh_folder zsh/vendor-completions)
endif()
# The completions for some commands: a file for bash named after each, as fish has it too. One file serves
# all commands in bash and zsh; it comes with each component under that one's name.
function(quobe_install_completions component command)
  install(FILES completions/quobe-unlock RENAME ${command} COMPONENT ${component}
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions")
  string(REGEX REPLACE "-(openocd|sim)$" "" fish ${command})
  install(FILES completions/${fish}.fish RENAME ${command}.fish COMPONENT ${component}
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d")
  install(FILES completions/_quobe-unlock RENAME _${command} COMPONENT ${component}
    DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/${zsh_folder}")
endfunction()

quobe_install_man(tool quobe-unlock)
quobe_install_completions(tool quobe-unlock)
foreach(command quobe-options quobe-line)
  quobe_install_man(companions ${command})
  quobe_install_completions(companions ${command})
  quobe_install_completions(adapters ${command}-openocd)
  if(TARGET quobearm)
    quobe_install_completions(simulator ${command}-sim)
  endif()
endforeach()
quobe_install_man(adapters quobe-unlock-openocd)
quobe_install_completions(adapters quobe-unlock-openocd)
if(TARGET quobearm)
  quobe_install_man(simulator quobe-bench)
  file(WRITE "${staging}/quobe-unlock-sim.1" ".so man1/quobe-bench.1\n")
  install(FILES "${staging}/quobe-unlock-sim.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT simulator)
  quobe_install_completions(simulator quobe-unlock-sim)
  quobe_install_completions(simulator quobe-bench)
endif()

# -- The support library -------------------------------------------------------------------------

set(libraries quobe_headers quobe_platform quobe_util quobe_sys)
set(private_libraries "")
if(APPLE)
  set(private_libraries "-framework CoreFoundation -framework IOKit")
else()
  list(APPEND libraries quobe_host)
  set(private_libraries "-lquobe_host")
endif()
foreach(library IN LISTS libraries)
  string(REPLACE "quobe_" "" name ${library})
  set_target_properties(${library} PROPERTIES EXPORT_NAME ${name})
endforeach()
install(TARGETS ${libraries} EXPORT quobe
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)

# The headers that a caller includes; the others are between the modules.
file(GLOB util_headers RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/util/*.h")
file(GLOB sys_headers RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/sys/*.h")
foreach(header IN LISTS util_headers sys_headers)
  if(NOT header MATCHES "^(util/(block|cpu|digits)|sys/(registry_store|serial_settings|wait_ready|xml_node))\\.h$")
    get_filename_component(folder "${header}" DIRECTORY)
    install(FILES "${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/quobe/${folder}" COMPONENT development)
  endif()
endforeach()

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/quobe")
configure_package_config_file(cmake/quobe-config.cmake.in "${staging}/quobe-config.cmake"
  INSTALL_DESTINATION "${package_folder}" NO_SET_AND_CHECK_MACRO)
# Before 1.0 a new minor version may change what callers see.
write_basic_package_version_file("${staging}/quobe-config-version.cmake" COMPATIBILITY SameMinorVersion)
install(EXPORT quobe NAMESPACE quobe:: FILE quobe-targets.cmake DESTINATION "${package_folder}"
  COMPONENT development)
install(FILES "${staging}/quobe-config.cmake" "${staging}/quobe-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT development)

# From the folder of the files to the prefix, so that an installation can be moved.
file(RELATIVE_PATH prefix_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
foreach(name util sys)
  configure_file(cmake/quobe-${name}.pc.in "${staging}/quobe-${name}.pc" @ONLY)
  install(FILES "${staging}/quobe-${name}.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
endforeach()

# -- Documents -----------------------------------------------------------------------------------

configure_file(cmake/quobe.spdx.in "${staging}/quobe.spdx" @ONLY)
install(FILES README.md CHANGELOG.md LICENSE THIRD-PARTY.md "${staging}/quobe.spdx"
  DESTINATION "${QUOBE_DOCUMENTS}" COMPONENT documents)
install(DIRECTORY docs DESTINATION "${QUOBE_DOCUMENTS}" COMPONENT documents)
install(DIRECTORY examples DESTINATION "${QUOBE_DOCUMENTS}" COMPONENT documents
  PATTERN CMakeLists.txt EXCLUDE)

include(cmake/QuobePackage.cmake)

# Everything that an installation needs built.
add_custom_target(installable DEPENDS quobe-unlock quobe-options quobearm_openocd quobe_util quobe_sys)
foreach(target quobearm quobe-bench)
  if(TARGET ${target})
    add_dependencies(installable ${target})
  endif()
endforeach()
