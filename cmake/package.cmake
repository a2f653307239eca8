# The Debian packages libkt0 (the shared libraries), libkt-dev (headers, CMake
# package, pkg-config file) and kt-tools (the tool and its manual), each with
# a -dbgsym package holding the debug symbols stripped from its binaries.
# Configured with the prefix /usr (the `package` preset), the libraries and
# kt.pc land in the multiarch folder that GNUInstallDirs picks for it.
set(CPACK_PACKAGE_NAME kt)
set(CPACK_PACKAGE_VENDOR "the libkt authors")
set(CPACK_PACKAGE_CONTACT "libkt developers <maintainers@users.noreply.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tool)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Dependencies on the system's libraries come from dpkg-shlibdeps, which finds
# libkt for kt-tools in the build tree; libkt0 announces its own in shlibs.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libkt0)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# dpkg runs ldconfig once after installing or removing shared libraries.
file(WRITE ${PROJECT_BINARY_DIR}/package/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/package/triggers)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkt-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkt0 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME kt-tools)
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "libkt0 (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "libkt shared libraries")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "libkt headers, CMake package and pkg-config file")
set(CPACK_COMPONENT_TOOL_DESCRIPTION "the kt command-line tool")

# usr/share/doc/<package>/copyright and changelog.gz in every package, made
# from LICENSE and CHANGELOG.md when the packages are made (with the gzip found
# for the manual, tools/CMakeLists.txt). A plain `cmake --install` leaves them
# out: they belong to the packages alone.
set(kt_package_docs ${PROJECT_BINARY_DIR}/package)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(doc_dir ${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(CODE "execute_process(COMMAND \"${CMAKE_COMMAND}\"
      \"-DLICENSE=${PROJECT_SOURCE_DIR}/LICENSE\" \"-DCHANGELOG=${PROJECT_SOURCE_DIR}/CHANGELOG.md\"
      \"-DOUTPUT_DIR=${kt_package_docs}\" -DSOURCE_NAME=libkt -DVERSION=${PROJECT_VERSION}
      \"-DMAINTAINER=${CPACK_PACKAGE_CONTACT}\" \"-DGZIP=${KT_GZIP}\"
      -P \"${PROJECT_SOURCE_DIR}/cmake/package_docs.cmake\" COMMAND_ERROR_IS_FATAL ANY)"
    COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${kt_package_docs}/copyright ${kt_package_docs}/changelog.gz
    DESTINATION ${doc_dir} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
