# SPDX-License-Identifier: MIT

# Packages by component: Debian's with cpack -G DEB, macOS's with cpack -G productbuild. script/package
# makes the ones of a release.
set(CPACK_PACKAGE_NAME quobe-unlock)
set(CPACK_PACKAGE_VENDOR "The Quobe Unlock authors")
set(CPACK_PACKAGE_CONTACT "The Quobe Unlock authors")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SECTION electronics)

set(CPACK_PRODUCTBUILD_IDENTIFIER org.quobe-unlock)

set(CPACK_COMPONENTS_ALL "")
# A component as a package: quobe_package(component package title text). It has the licence where Debian
# expects that.
macro(quobe_package component package title text)
  string(TOUPPER ${component} upper)
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${title}\n${text}")
  set(CPACK_COMPONENT_${upper}_DISPLAY_NAME "${title}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${text}")
  if(NOT APPLE)
    install(FILES LICENSE RENAME copyright COMPONENT ${component}
      DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}")
  endif()
endmacro()

quobe_package(tool quobe-unlock "return an STM32 to factory option bytes"
  "quobe-unlock drives a Quobe probe through the probe library of its maker, which is not in this package.")
quobe_package(adapters quobe-unlock-openocd "return an STM32 to factory option bytes with a debug adapter"
  "quobe-unlock-openocd drives ST-LINK and CMSIS-DAP adapters through OpenOCD.")
set(CPACK_DEBIAN_ADAPTERS_PACKAGE_DEPENDS openocd)
if(TARGET quobearm)
  quobe_package(simulator quobe-unlock-sim "quobe-unlock on simulated devices"
    "quobe-bench sets up simulated devices, and quobe-unlock-sim resets their option bytes.")
endif()
quobe_package(companions quobe-companions "programs beside quobe-unlock"
  "quobe-options shows the option bytes of an STM32, and quobe-line returns many units to factory state.")
set(CPACK_DEBIAN_COMPANIONS_PACKAGE_DEPENDS quobe-unlock)
foreach(component ADAPTERS SIMULATOR COMPANIONS) # for quobe-line
  set(CPACK_DEBIAN_${component}_PACKAGE_RECOMMENDS "python3, parallel")
endforeach()
quobe_package(development libquobe-dev "UTIL and SYS: headers and static libraries"
  "Formatting, scanning and conversions; files, a registry store in XML, threads, sockets, serial ports.")
quobe_package(documents quobe-unlock-doc "documents of quobe-unlock and its library"
  "Families, simulator, adapters, and the pages of the support library.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)
if(APPLE)
  set(CPACK_GENERATOR productbuild)
  set(CPACK_PACKAGE_FILE_NAME "quobe-unlock-${PROJECT_VERSION}-macos-${CMAKE_SYSTEM_PROCESSOR}")
else()
  set(CPACK_GENERATOR DEB)
endif()
include(CPack)
