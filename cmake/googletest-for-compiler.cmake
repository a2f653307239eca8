# GoogleTest built with this build's compiler and flags, for a standard library
# that Debian's packaged GoogleTest was not built against (clang with libc++:
# the packaged one is compiled for libstdc++, and a test program cannot link
# both). Read at the top-level project() call through
# CMAKE_PROJECT_TOP_LEVEL_INCLUDES (the clang-libcxx preset): the first
# configure builds the sources of Debian's googletest package into a prefix
# in the build tree, and find_package(GTest) then finds it there.
set(kt_googletest_prefix ${CMAKE_BINARY_DIR}/googletest)
if(NOT EXISTS ${kt_googletest_prefix}/lib/cmake/GTest/GTestConfig.cmake)
  set(kt_googletest_sources /usr/src/googletest)
  if(NOT EXISTS ${kt_googletest_sources}/CMakeLists.txt)
    message(FATAL_ERROR "GoogleTest sources are missing from ${kt_googletest_sources} (apt-get install googletest)")
  endif()
  message(STATUS "Building GoogleTest for ${CMAKE_CXX_COMPILER} ${CMAKE_CXX_FLAGS}")
  execute_process(
    COMMAND ${CMAKE_COMMAND} -S ${kt_googletest_sources} -B ${kt_googletest_prefix}-build
            -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
            "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
            -DCMAKE_INSTALL_PREFIX=${kt_googletest_prefix} -DCMAKE_INSTALL_LIBDIR=lib
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} --build ${kt_googletest_prefix}-build -j2 --target install
                  OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endif()
list(PREPEND CMAKE_PREFIX_PATH ${kt_googletest_prefix})
