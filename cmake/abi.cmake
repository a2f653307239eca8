# The binary interface baseline of the shared libraries (abi/<library>.abi,
# written by abidw of the Debian package abigail-tools).
#
#   MODE=check   compares each built library with its baseline (abidiff) and
#                fails on any difference, added symbols included;
#   MODE=update  rewrites the baselines from the built libraries.
#
# In: MODE, LIBRARIES (a list of built .so files), BASELINE_DIR, HEADERS_DIR.
# Run by the AbiBaseline test and the abi-baseline target (tests/CMakeLists.txt).
find_program(ABIDW abidw)
find_program(ABIDIFF abidiff)
if(NOT ABIDW OR NOT ABIDIFF)
  message(FATAL_ERROR "abigail-tools is not installed (apt-get install abigail-tools)")
endif()

foreach(library IN LISTS LIBRARIES)
  get_filename_component(name ${library} NAME_WE)
  set(baseline ${BASELINE_DIR}/${name}.abi)
  if(MODE STREQUAL "update")
    # Without source locations or the build path, so that the file depends
    # only on the interface.
    execute_process(COMMAND ${ABIDW} --no-show-locs --no-corpus-path --headers-dir ${HEADERS_DIR}
                            --drop-private-types --out-file ${baseline} ${library}
                    COMMAND_ERROR_IS_FATAL ANY)
    message(STATUS "Wrote ${baseline}")
  else()
    execute_process(COMMAND ${ABIDIFF} --headers-dir2 ${HEADERS_DIR} ${baseline} ${library}
                    RESULT_VARIABLE differs OUTPUT_VARIABLE report ERROR_VARIABLE report)
    if(differs)
      message(FATAL_ERROR "${name} no longer matches ${baseline}:\n${report}\n"
        "If the change is deliberate, refresh the baseline with "
        "`cmake --build <build dir> --target abi-baseline` and commit it.")
    endif()
    message(STATUS "${name} matches ${baseline}")
  endif()
endforeach()
