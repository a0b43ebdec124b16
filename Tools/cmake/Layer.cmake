# brantel_layer(NAME name SOURCES file... USES target...)
#
# One layer of the tree: an object library `<name>Objects` whose include path holds its own library's root (for the quoted
# form), the areas of what it uses, and nothing else; and a link proof, an empty main linked with the whole archive of
# the layer and only what it may use, so that a forbidden dependency is an undefined symbol.
#
# ROOT: the library's root (default: the current folder). AREA: the folder above it, through which other layers include it.
function(brantel_layer)
  cmake_parse_arguments(ARG "" "NAME;ROOT;AREA" "SOURCES;USES" ${ARGN})
  if(NOT ARG_ROOT)
    set(ARG_ROOT "${CMAKE_CURRENT_SOURCE_DIR}")
  endif()
  if(NOT ARG_AREA)
    cmake_path(GET ARG_ROOT PARENT_PATH ARG_AREA)
  endif()
  add_library(${ARG_NAME}Objects OBJECT ${ARG_SOURCES})
  target_include_directories(${ARG_NAME}Objects PUBLIC "$<BUILD_INTERFACE:${ARG_AREA}>" PRIVATE "${ARG_ROOT}")
  target_link_libraries(${ARG_NAME}Objects PRIVATE BrantelWarnings PUBLIC ${ARG_USES})

  add_library(${ARG_NAME}Archive STATIC $<TARGET_OBJECTS:${ARG_NAME}Objects>)
  set_target_properties(${ARG_NAME}Archive PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(${ARG_NAME}Archive INTERFACE "$<BUILD_INTERFACE:${ARG_AREA}>")
  target_link_libraries(${ARG_NAME}Archive PUBLIC ${ARG_USES})

  add_executable(${ARG_NAME}LinkProof "${CMAKE_SOURCE_DIR}/Tools/cmake/LinkProof.cpp")
  target_link_libraries(${ARG_NAME}LinkProof PRIVATE
    -Wl,--whole-archive $<TARGET_FILE:${ARG_NAME}Archive> -Wl,--no-whole-archive ${ARG_USES})
  target_link_options(${ARG_NAME}LinkProof PRIVATE -Wl,--no-undefined)
  add_dependencies(${ARG_NAME}LinkProof ${ARG_NAME}Archive)
  if(BUILD_TESTING)
    add_test(NAME LinkProof.${ARG_NAME} COMMAND ${ARG_NAME}LinkProof)
  endif()
endfunction()

# brantel_shared_library(TARGET target EXPORT name LAYERS layer... USES target...)
#
# An installed shared library made of layers; others link it as Brantel::<EXPORT>.
function(brantel_shared_library)
  cmake_parse_arguments(ARG "" "TARGET;EXPORT" "LAYERS;USES" ${ARGN})
  add_library(${ARG_TARGET} SHARED)
  add_library(Brantel::${ARG_EXPORT} ALIAS ${ARG_TARGET})
  foreach(layer IN LISTS ARG_LAYERS)
    target_sources(${ARG_TARGET} PRIVATE $<TARGET_OBJECTS:${layer}Objects>)
    target_include_directories(${ARG_TARGET} INTERFACE
      "$<BUILD_INTERFACE:$<TARGET_PROPERTY:${layer}Objects,INTERFACE_INCLUDE_DIRECTORIES>>")
    target_include_directories(${ARG_TARGET} SYSTEM INTERFACE
      "$<BUILD_INTERFACE:$<TARGET_PROPERTY:${layer}Objects,INTERFACE_SYSTEM_INCLUDE_DIRECTORIES>>")
  endforeach()
  target_include_directories(${ARG_TARGET} INTERFACE "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/brantel>")
  target_compile_features(${ARG_TARGET} INTERFACE cxx_std_20)
  target_link_libraries(${ARG_TARGET} PUBLIC ${ARG_USES})
  if(NOT BRANTEL_SANITIZE)
    target_link_options(${ARG_TARGET} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${ARG_TARGET} PROPERTIES
    LINKER_LANGUAGE CXX EXPORT_NAME ${ARG_EXPORT} VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()
