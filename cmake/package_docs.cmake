# The two files every Debian package carries in usr/share/doc/<package>/,
# made from the project's own LICENSE and CHANGELOG.md so that each fact keeps
# one source:
#   copyright     the LICENSE text in the machine-readable copyright format;
#   changelog.gz  CHANGELOG.md in the Debian change log format, compressed
#                 without a name or time stamp so that the bytes are repeatable.
# A section of CHANGELOG.md starts with a heading "## VERSION", optionally
# followed by its release date as YYYY-MM-DD ("## 0.2.0 - 2027-01-31"); a
# heading without a version number ("## Unreleased") stands for the project's
# version; a section without a date is dated when the package is made
# (SOURCE_DATE_EPOCH, when set, fixes that time too).
# Usage: cmake -DLICENSE=... -DCHANGELOG=... -DOUTPUT_DIR=... -DSOURCE_NAME=...
#              -DVERSION=... -DMAINTAINER=... -DGZIP=... -P package_docs.cmake
cmake_minimum_required(VERSION 3.25)

# Lines of a text file as a list; ";" is kept as "\;" and empty lines are kept.
function(read_lines path out)
  file(READ "${path}" text)
  string(REPLACE ";" "\\;" text "${text}")
  string(REGEX REPLACE "\n$" "" text "${text}")
  string(REPLACE "\n" ";" text "${text}")
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# copyright: one paragraph for every file, the license text indented by one
# space with " ." for its empty lines. The license is the one the Debian format
# calls "Expat" (its name for the MIT license).
# The holders come from LICENSE's "Copyright" line, the terms from what
# follows it.
read_lines("${LICENSE}" license_lines)
set(notices ${license_lines})
list(FILTER notices INCLUDE REGEX "^Copyright")
list(GET notices 0 notice)
string(REGEX REPLACE "^Copyright (\\([cC]\\) )?" "" holders "${notice}")
list(FIND license_lines "${notice}" notice_at)
math(EXPR terms_at "${notice_at} + 2")
list(SUBLIST license_lines ${terms_at} -1 license_terms)
set(copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n")
string(APPEND copyright "Upstream-Name: ${SOURCE_NAME}\n\nFiles: *\nCopyright: ${holders}\n")
string(APPEND copyright "License: Expat\n")
foreach(line IN LISTS license_terms)
  if(line STREQUAL "")
    string(APPEND copyright " .\n")
  else()
    string(APPEND copyright " ${line}\n")
  endif()
endforeach()
file(WRITE "${OUTPUT_DIR}/copyright" "${copyright}")

# The RFC 5322 date Debian change logs end each entry with: for YYYY-MM-DD,
# noon UTC of that day (string(TIMESTAMP) formats SOURCE_DATE_EPOCH, so the
# day's epoch is put there for the call); without a date, now.
function(entry_date day out)
  set(saved "$ENV{SOURCE_DATE_EPOCH}")
  if(day MATCHES "^([0-9]+)-0*([0-9]+)-0*([0-9]+)$")
    # Days since 1970-01-01 of a proleptic Gregorian date (years from March).
    set(y ${CMAKE_MATCH_1})
    set(m ${CMAKE_MATCH_2})
    set(d ${CMAKE_MATCH_3})
    if(m LESS_EQUAL 2)
      math(EXPR y "${y} - 1")
      math(EXPR m "${m} + 9")
    else()
      math(EXPR m "${m} - 3")
    endif()
    math(EXPR days "365 * ${y} + ${y} / 4 - ${y} / 100 + ${y} / 400 + (153 * ${m} + 2) / 5 + ${d} - 719469")
    math(EXPR epoch "${days} * 86400 + 43200")
    set(ENV{SOURCE_DATE_EPOCH} ${epoch})
  endif()
  string(TIMESTAMP stamp "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(ENV{SOURCE_DATE_EPOCH} "${saved}")
  set(${out} "${stamp}" PARENT_SCOPE)
endfunction()

# Appends one paragraph to `changes`, wrapped within 80 columns: `first`
# starts its first line, `rest` the others.
function(append_paragraph text first rest)
  # A ";" in the text stands aside as SUB while the words are a list.
  string(ASCII 26 sub)
  string(REPLACE ";" "${sub}" text "${text}")
  string(REGEX REPLACE "[ \t]+" ";" words "${text}")
  set(line "${first}")
  set(at_start TRUE)
  foreach(word IN LISTS words)
    string(LENGTH "${line} ${word}" width)
    if(at_start)
      string(APPEND line "${word}")
      set(at_start FALSE)
    elseif(width GREATER 79)
      string(APPEND changes "${line}\n")
      set(line "${rest}${word}")
    else()
      string(APPEND line " ${word}")
    endif()
  endforeach()
  string(APPEND changes "${line}\n")
  string(REPLACE "${sub}" ";" changes "${changes}")
  set(changes "${changes}" PARENT_SCOPE)
endfunction()

# changelog: each "## " section becomes an entry; its paragraphs and list
# items become "*" items ("-" under them for nested lists), "###" headings an
# item of their own. Text before the first section is the file's title.
set(changelog "")
set(entry_version "")
function(close_paragraph)
  if(NOT paragraph STREQUAL "")
    if(paragraph_nested)
      append_paragraph("${paragraph}" "    - " "      ")
    else()
      append_paragraph("${paragraph}" "  * " "    ")
    endif()
  endif()
  set(paragraph "" PARENT_SCOPE)
  set(paragraph_nested FALSE PARENT_SCOPE)
  set(changes "${changes}" PARENT_SCOPE)
endfunction()
function(close_entry)
  close_paragraph()
  if(NOT entry_version STREQUAL "")
    entry_date("${entry_day}" stamp)
    string(APPEND changelog "${SOURCE_NAME} (${entry_version}) unstable; urgency=medium\n\n"
           "${changes}\n -- ${MAINTAINER}  ${stamp}\n\n")
  endif()
  set(changelog "${changelog}" PARENT_SCOPE)
  set(changes "" PARENT_SCOPE)
  set(paragraph "" PARENT_SCOPE)
endfunction()

read_lines("${CHANGELOG}" lines)
set(first_version "")
foreach(line IN LISTS lines)
  string(REPLACE "`" "" line "${line}")
  if(line MATCHES "^## +(.*)$")
    close_entry()
    set(heading "${CMAKE_MATCH_1}")
    if(heading MATCHES "[0-9]+(\\.[0-9A-Za-z~+]+)+")
      set(entry_version "${CMAKE_MATCH_0}")
    else()
      set(entry_version "${VERSION}")
    endif()
    set(entry_day "")
    if(heading MATCHES "[0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]")
      set(entry_day "${CMAKE_MATCH_0}")
    endif()
    if(first_version STREQUAL "")
      set(first_version "${entry_version}")
    endif()
  elseif(entry_version STREQUAL "")
    # The title and any introduction.
  elseif(line MATCHES "^#+ +(.*)$")
    close_paragraph()
    set(paragraph "${CMAKE_MATCH_1}:")
    close_paragraph()
  elseif(line MATCHES "^[ \t]*$")
    close_paragraph()
  elseif(line MATCHES "^( *)[-*+] +(.*)$")
    close_paragraph()
    set(paragraph "${CMAKE_MATCH_2}")
    string(LENGTH "${CMAKE_MATCH_1}" indent)
    if(indent GREATER 0)
      set(paragraph_nested TRUE)
    endif()
  else()
    string(STRIP "${line}" line)
    string(APPEND paragraph " ${line}")
    string(STRIP "${paragraph}" paragraph)
  endif()
endforeach()
close_entry()

if(NOT first_version STREQUAL VERSION)
  message(FATAL_ERROR "${CHANGELOG}: the newest section is \"${first_version}\", "
          "not the project's version ${VERSION}: add a \"## ${VERSION}\" section")
endif()
file(WRITE "${OUTPUT_DIR}/changelog" "${changelog}")
execute_process(COMMAND "${GZIP}" -9nf "${OUTPUT_DIR}/changelog" COMMAND_ERROR_IS_FATAL ANY)
