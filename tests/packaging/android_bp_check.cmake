# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# Checks that Android.bp builds the same plug-in as CMake: the same sources,
# every compile option of the CMake build (-ffp-contract=off above all), no
# value-changing floating-point flag, hidden visibility, the same C++
# standard and the same export map. Neither the platform build nor the NDK
# can run here, so this is what keeps the two builds from drifting apart.
#
# cmake -DANDROID_BP=<file> -DSOURCE_DIR=<dir> -DSOURCES=<a|b|..>
#       -DCOMPILE_OPTIONS=<a|b|..> -DLINK_OPTIONS=<a|b|..> -DCXX_STANDARD=<n>
#       [-DREPLACE=<old|new>] -P android_bp_check.cmake
# REPLACE edits the file's text before the check, so that the tests can show
# that a broken Android.bp is caught.

cmake_minimum_required(VERSION 3.25)

foreach(var IN ITEMS ANDROID_BP SOURCE_DIR SOURCES COMPILE_OPTIONS LINK_OPTIONS CXX_STANDARD)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "android_bp_check: ${var} is not set")
  endif()
endforeach()
foreach(var IN ITEMS SOURCES COMPILE_OPTIONS LINK_OPTIONS REPLACE)
  string(REPLACE "|" ";" ${var} "${${var}}")
endforeach()

file(READ "${ANDROID_BP}" text)
if(REPLACE)
  list(GET REPLACE 0 old)
  list(GET REPLACE 1 new)
  string(REPLACE "${old}" "${new}" text "${text}")
endif()
# Line comments may hold anything; none of them counts. (Block comments are
# not stripped: "src/**/*.cpp" would look like one.)
string(REGEX REPLACE "//[^\n]*" "" text "${text}")

set(problems "")
macro(problem message)
  string(APPEND problems "  ${message}\n")
endmacro()

# The module block of the plug-in.
string(REGEX MATCH "cc_library_shared[ \t\n]*{[^}]*name:[ \t\n]*\"libmagcal\"[^}]*}" module "${text}")
if(NOT module)
  message(FATAL_ERROR "Android.bp: no cc_library_shared named \"libmagcal\"")
endif()

# The strings of a list property (empty when the property is absent).
function(bp_list property out)
  set(items "")
  if(module MATCHES "[ \t\n,{]${property}:[ \t\n]*\\[([^]]*)\\]")
    string(REGEX MATCHALL "\"[^\"]*\"" quoted "${CMAKE_MATCH_1}")
    foreach(q IN LISTS quoted)
      string(REGEX REPLACE "^\"(.*)\"$" "\\1" q "${q}")
      list(APPEND items "${q}")
    endforeach()
  endif()
  set(${out} "${items}" PARENT_SCOPE)
endfunction()

# The value of a scalar property: a quoted string or a bare word.
function(bp_scalar property out)
  set(value "")
  if(module MATCHES "[ \t\n,{]${property}:[ \t\n]*\"([^\"]*)\"")
    set(value "${CMAKE_MATCH_1}")
  elseif(module MATCHES "[ \t\n,{]${property}:[ \t\n]*([a-z]+)")
    set(value "${CMAKE_MATCH_1}")
  endif()
  set(${out} "${value}" PARENT_SCOPE)
endfunction()

# Source patterns as the platform build expands them: "**" is any number of
# directories, "*" any name part, relative to the directory of Android.bp.
function(bp_expand patterns out)
  get_filename_component(bp_dir "${ANDROID_BP}" DIRECTORY)
  set(files "")
  foreach(pattern IN LISTS patterns)
    if(pattern MATCHES "\\*\\*/")
      string(REPLACE "**/" "" flat "${pattern}")
      file(GLOB_RECURSE found "${bp_dir}/${flat}")
    elseif(pattern MATCHES "\\*")
      file(GLOB found "${bp_dir}/${pattern}")
    else()
      set(found "${bp_dir}/${pattern}")
    endif()
    list(APPEND files ${found})
  endforeach()
  set(${out} "${files}" PARENT_SCOPE)
endfunction()

function(normalised paths out)
  set(result "")
  foreach(p IN LISTS paths)
    file(REAL_PATH "${p}" p)
    list(APPEND result "${p}")
  endforeach()
  list(REMOVE_DUPLICATES result)
  list(SORT result)
  set(${out} "${result}" PARENT_SCOPE)
endfunction()

bp_list(srcs srcs)
bp_list(exclude_srcs excluded)
bp_expand("${srcs}" bp_sources)
bp_expand("${excluded}" bp_excluded)
if(bp_excluded)
  list(REMOVE_ITEM bp_sources ${bp_excluded})
endif()
normalised("${bp_sources}" bp_sources)
normalised("${SOURCES}" cmake_sources)
foreach(f IN LISTS cmake_sources)
  if(NOT f IN_LIST bp_sources)
    file(RELATIVE_PATH rel "${SOURCE_DIR}" "${f}")
    problem("source ${rel} is built by CMake but not by Android.bp")
  endif()
endforeach()
foreach(f IN LISTS bp_sources)
  if(NOT f IN_LIST cmake_sources)
    file(RELATIVE_PATH rel "${SOURCE_DIR}" "${f}")
    problem("source ${rel} is built by Android.bp but not by CMake")
  endif()
endforeach()

bp_list(cflags cflags)
bp_list(cppflags cppflags)
bp_list(conlyflags conlyflags)
bp_list(ldflags ldflags)
set(all_flags ${cflags} ${cppflags} ${conlyflags} ${ldflags})
foreach(option IN LISTS COMPILE_OPTIONS)
  if(NOT option IN_LIST cflags)
    problem("compile option ${option} of the CMake build is missing from cflags")
  endif()
endforeach()
foreach(flag IN LISTS all_flags)
  if(flag MATCHES "fast-math|unsafe-math|^-Ofast|^-ffp-contract=(fast|on)|associative-math|finite-math")
    problem("${flag} changes floating-point results")
  endif()
endforeach()
if(NOT "-fvisibility=hidden" IN_LIST cflags)
  problem("cflags lack -fvisibility=hidden: names outside the export map would leak")
endif()
if(NOT "-fvisibility-inlines-hidden" IN_LIST all_flags)
  problem("-fvisibility-inlines-hidden is missing")
endif()

bp_scalar(cpp_std cpp_std)
if(NOT cpp_std STREQUAL "c++${CXX_STANDARD}")
  problem("cpp_std is \"${cpp_std}\", CMake builds C++${CXX_STANDARD}")
endif()

set(cmake_map "")
foreach(option IN LISTS LINK_OPTIONS)
  if(option MATCHES "--version-script=(.+)$")
    file(REAL_PATH "${CMAKE_MATCH_1}" cmake_map)
  endif()
endforeach()
# Link options that decide how the library binds its own symbols must match;
# the export map is compared below and --no-undefined is the platform default.
foreach(option IN LISTS LINK_OPTIONS)
  if(option MATCHES "-Bsymbolic" AND NOT option IN_LIST ldflags)
    problem("link option ${option} of the CMake build is missing from ldflags")
  endif()
endforeach()
bp_scalar(version_script bp_map)
get_filename_component(bp_dir "${ANDROID_BP}" DIRECTORY)
if(bp_map)
  file(REAL_PATH "${bp_map}" bp_map BASE_DIRECTORY "${bp_dir}")
endif()
if(NOT cmake_map OR NOT bp_map STREQUAL cmake_map)
  problem("version_script \"${bp_map}\" is not the CMake build's export map \"${cmake_map}\"")
endif()

bp_scalar(vendor vendor)
if(NOT vendor STREQUAL "true")
  problem("the plug-in must be a vendor library (vendor: true)")
endif()
bp_list(shared_libs shared_libs)
if(NOT "liblog" IN_LIST shared_libs)
  problem("shared_libs lacks liblog, which the platform log calls need")
endif()

if(problems)
  message(FATAL_ERROR "Android.bp and the CMake build disagree:\n${problems}")
endif()
list(LENGTH cmake_sources count)
message(STATUS "Android.bp agrees with CMake: ${count} sources, flags and export map")
