# What `cmake --install` and the packages hold: the plug-in in a library directory of its own, the
# header with a CMake package, the tools, and the documents with their links intact.
include(CMakePackageConfigHelpers)

add_library(kelvo_host_abi INTERFACE)
set_target_properties(kelvo_host_abi PROPERTIES EXPORT_NAME host_abi)
target_include_directories(kelvo_host_abi INTERFACE $<INSTALL_INTERFACE:include>)

install(TARGETS kelvo LIBRARY DESTINATION lib/kelvo)
install(DIRECTORY include/kelvo DESTINATION include)
if(KELVO_TOOLS)
  install(TARGETS nvrhost psinfo RUNTIME DESTINATION bin)
endif()

# find_package(kelvo) gives kelvo::host_abi, whose include path has <kelvo/host_abi.h>.
set(package_folder lib/cmake/kelvo)
install(TARGETS kelvo_host_abi EXPORT kelvo)
install(EXPORT kelvo FILE kelvoConfig.cmake NAMESPACE kelvo:: DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kelvoConfigVersion.cmake
  COMPATIBILITY SameMajorVersion ARCH_INDEPENDENT)
install(FILES ${CMAKE_BINARY_DIR}/kelvoConfigVersion.cmake DESTINATION ${package_folder})

set(document_folder share/doc/kelvo)
install(FILES README.md ARCHITECTURE.md CHANGELOG.md DESTINATION ${document_folder})
install(DIRECTORY docs DESTINATION ${document_folder})
install(FILES examples/host.c DESTINATION ${document_folder}/examples)
# Of the binaries as they lie in the build folder at the time of the installation.
find_program(KELVO_DPKG_QUERY dpkg-query)
if(KELVO_DPKG_QUERY AND CMAKE_GENERATOR STREQUAL Ninja)
  foreach(target kelvo nvrhost psinfo)
    if(TARGET ${target})
      target_link_options(${target} PRIVATE -Wl,-Map,${CMAKE_BINARY_DIR}/${target}.link)
    endif()
  endforeach()
  install(CODE "execute_process(COMMAND_ERROR_IS_FATAL ANY
    COMMAND \"${CMAKE_SOURCE_DIR}/cmake/third_party.sh\" \"${CMAKE_BINARY_DIR}\"
    OUTPUT_FILE \"${CMAKE_BINARY_DIR}/third-party.md\")")
  install(FILES ${CMAKE_BINARY_DIR}/third-party.md DESTINATION ${document_folder}/docs)
endif()

set(CPACK_PACKAGE_VENDOR kelvo)
set(CPACK_PACKAGE_CONTACT "the maintainers of kelvo <maintainers@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_STRIP_FILES ON)
set(CPACK_INCLUDE_TOPLEVEL_DIRECTORY ON)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  set(CPACK_PACKAGE_FILE_NAME kelvo-${PROJECT_VERSION}-windows-x64)
else()
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_PACKAGE_FILE_NAME kelvo-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)  # kelvo_<version>_<architecture>.deb
  set(CPACK_DEBIAN_PACKAGE_SECTION video)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
