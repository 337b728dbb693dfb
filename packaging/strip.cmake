# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Run by CPack on the staged files before it packs them.
find_program(STRIP strip REQUIRED)
if(NOT IS_DIRECTORY "${CPACK_TEMPORARY_DIRECTORY}")
  message(FATAL_ERROR "strip.cmake: no staging folder '${CPACK_TEMPORARY_DIRECTORY}'")
endif()
file(GLOB_RECURSE files "${CPACK_TEMPORARY_DIRECTORY}/*")
foreach(file IN LISTS files)
  if(IS_SYMLINK "${file}")
    continue()
  endif()
  file(READ "${file}" magic LIMIT 4 HEX)
  if(magic STREQUAL "7f454c46")
    set(what --strip-unneeded)
  elseif(file MATCHES "\\.a$")
    set(what --strip-debug --enable-deterministic-archives)
  else()
    continue()
  endif()
  execute_process(COMMAND ${STRIP} ${what} --remove-section=.comment --remove-section=.note
    "${file}" COMMAND_ERROR_IS_FATAL ANY)
endforeach()
