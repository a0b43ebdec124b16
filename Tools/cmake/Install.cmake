# What `cmake --install` puts where, in components: Platform (libTime, libServices) and ProtocolX, each with what programs
# are built with in a component of its own, PlatformDevelopment and ProtocolXDevelopment; Server; Tool. Everything below the
# prefix finds everything else by relative paths, so that the prefix can be moved.
include(CMakePackageConfigHelpers)

set(packages "${CMAKE_INSTALL_LIBDIR}/cmake")
set(headers "${CMAKE_INSTALL_INCLUDEDIR}/brantel")
add_custom_target(InstalledParts)
foreach(part IN ITEMS brantel-storaged brantel BrantelManual)
  if(TARGET ${part})
    add_dependencies(InstalledParts ${part})
  endif()
endforeach()

# brantel_install_package(NAME name COMPONENT component TARGETS target...)
#
# A CMake package of shared libraries, from the template Tools/cmake/<name>Config.cmake.in. All but the libraries
# themselves goes to <component>Development.
function(brantel_install_package)
  cmake_parse_arguments(ARG "" "NAME;COMPONENT" "TARGETS" ${ARGN})
  add_dependencies(InstalledParts ${ARG_TARGETS})
  install(TARGETS ${ARG_TARGETS} EXPORT ${ARG_NAME}Targets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    COMPONENT ${ARG_COMPONENT} NAMELINK_COMPONENT ${ARG_COMPONENT}Development)
  install(EXPORT ${ARG_NAME}Targets NAMESPACE Brantel::
    DESTINATION "${packages}/${ARG_NAME}" COMPONENT ${ARG_COMPONENT}Development)
  configure_package_config_file("${PROJECT_SOURCE_DIR}/Tools/cmake/${ARG_NAME}Config.cmake.in"
    "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}Config.cmake" INSTALL_DESTINATION "${packages}/${ARG_NAME}")
  write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}ConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
  install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}Config.cmake" "${CMAKE_CURRENT_BINARY_DIR}/${ARG_NAME}ConfigVersion.cmake"
    DESTINATION "${packages}/${ARG_NAME}" COMPONENT ${ARG_COMPONENT}Development)
endfunction()

# Headers: what Tools/PublicHeaders.txt lists, below the area (Platform/libTime/X.h is included as <libTime/X.h>).
file(STRINGS "${PROJECT_SOURCE_DIR}/Tools/PublicHeaders.txt" publicHeaders REGEX "^[^#]")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/Tools/PublicHeaders.txt")
foreach(header IN LISTS publicHeaders)
  if(NOT EXISTS "${PROJECT_SOURCE_DIR}/${header}")
    message(FATAL_ERROR "Tools/PublicHeaders.txt: ${header} does not exist")
  endif()
  if(header MATCHES "^Platform/(.*)/[^/]*$")
    set(component Platform)
  elseif(header MATCHES "^Rpc/(.*)/[^/]*$")
    set(component ProtocolX)
  else()
    message(FATAL_ERROR "Tools/PublicHeaders.txt: ${header} belongs to no installed library")
  endif()
  if(component STREQUAL "ProtocolX" OR BRANTEL_PLATFORM STREQUAL "own")
    install(FILES "${PROJECT_SOURCE_DIR}/${header}" DESTINATION "${headers}/${CMAKE_MATCH_1}" COMPONENT ${component}Development)
  endif()
endforeach()

if(BRANTEL_PLATFORM STREQUAL "own")
  brantel_install_package(NAME BrantelPlatform COMPONENT Platform TARGETS BrantelTime BrantelServices)
endif()
brantel_install_package(NAME ProtocolX COMPONENT ProtocolX TARGETS ProtocolX)

foreach(name IN ITEMS CommonMessages BrantelStorageApiMessages)
  install(FILES
    "${PROJECT_SOURCE_DIR}/Rpc/libProtocolX/schema/${name}.proto"
    "${PROJECT_BINARY_DIR}/Rpc/libProtocolX/schema/${name}.pb.h"
    DESTINATION "${headers}/libProtocolX/schema" COMPONENT ProtocolXDevelopment)
endforeach()

# The way from the folder of protocolx.pc up to the prefix.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" OUTPUT_VARIABLE prefixFromPkgconfig)
configure_file("${PROJECT_SOURCE_DIR}/Tools/cmake/protocolx.pc.in" protocolx.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/protocolx.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT ProtocolXDevelopment)
