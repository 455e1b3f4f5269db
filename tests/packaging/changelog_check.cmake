# SPDX-License-Identifier: Apache-2.0
# Copyright 2026 The magcal Authors
#
# The changelog's newest release is the project version: a release bumps both
# in one change, and unreleased work is listed under "Unreleased" above it.
#
# cmake -DCHANGELOG=<file> -DVERSION=<x.y.z> -P changelog_check.cmake

cmake_minimum_required(VERSION 3.25)

file(STRINGS "${CHANGELOG}" headings REGEX "^## ")
list(LENGTH headings count)
if(count LESS 2)
  message(FATAL_ERROR "${CHANGELOG}: expected \"## [Unreleased]\" and at least one release")
endif()
list(GET headings 0 first)
list(GET headings 1 newest)
if(NOT first STREQUAL "## [Unreleased]")
  message(FATAL_ERROR "${CHANGELOG}: the first section must be \"## [Unreleased]\", not \"${first}\"")
endif()
if(NOT newest MATCHES "^## \\[([0-9]+\\.[0-9]+\\.[0-9]+)\\] - [0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]$")
  message(FATAL_ERROR "${CHANGELOG}: \"${newest}\" is not \"## [x.y.z] - YYYY-MM-DD\"")
endif()
if(NOT CMAKE_MATCH_1 STREQUAL VERSION)
  message(FATAL_ERROR "${CHANGELOG}: newest release ${CMAKE_MATCH_1}, project version ${VERSION}")
endif()
message(STATUS "CHANGELOG.md's newest release is ${VERSION}")
