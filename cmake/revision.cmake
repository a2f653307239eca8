# Writes the build identification source from its template with the revision
# checked out now. Run by the build on every pass (cmake -P); configure_file()
# leaves the output untouched when nothing changed, so a build with no new
# commit recompiles nothing.
#
# In: SOURCE_DIR, TEMPLATE, OUTPUT, PROJECT_VERSION, KT_FLAVOUR, KT_PLATFORM.
execute_process(COMMAND git rev-parse --short=12 HEAD
  WORKING_DIRECTORY ${SOURCE_DIR}
  OUTPUT_VARIABLE KT_REVISION OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
if(NOT KT_REVISION)
  set(KT_REVISION "unknown")
endif()
configure_file(${TEMPLATE} ${OUTPUT} @ONLY)
