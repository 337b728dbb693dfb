# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# quillet_add_app_bundle(<target> INFO_PLIST <file>
#                        [NAME <name>] [OUTPUT_DIRECTORY <dir>]
#                        [ICON <file>] [README <file>] [RESOURCES <file>...]
#                        [CARRY_INSTALLER])
#
# Lays out <dir>/<name>.app around the executable <target>, as VXBundle and
# the installer read a bundle:
#
#   <name>.app/Contents/Info.plist          INFO_PLIST, with @VARIABLES@ replaced
#   <name>.app/Contents/Linux/<executable>  the target's output
#   <name>.app/Contents/Resources/          ICON, README, RESOURCES
#   <name>.app/Contents/Resources/QuilletInstaller.app   with CARRY_INSTALLER
#
# NAME defaults to the target's name, OUTPUT_DIRECTORY to the current binary
# folder. CFBundleExecutable in the Info.plist must name the target's output
# file, and CFBundleIconFile the ICON (with or without its extension).
# CARRY_INSTALLER copies the installer bundle QUILLET_INSTALLER_BUNDLE (set by
# find_package(Quillet), or by Quillet's own build) into the product, fresh on
# every build. The layout is made by the target <target>_bundle, part of ALL;
# the bundle's path is in the target's property QUILLET_BUNDLE_PATH.
function(quillet_add_app_bundle target)
  cmake_parse_arguments(PARSE_ARGV 1 B "CARRY_INSTALLER" "INFO_PLIST;NAME;OUTPUT_DIRECTORY;ICON;README"
    "RESOURCES")
  if(B_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "quillet_add_app_bundle: unknown arguments ${B_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT TARGET ${target})
    message(FATAL_ERROR "quillet_add_app_bundle: ${target} is not a target")
  endif()
  if(NOT B_INFO_PLIST)
    message(FATAL_ERROR "quillet_add_app_bundle(${target}): INFO_PLIST is required")
  endif()
  if(NOT B_NAME)
    set(B_NAME ${target})
  endif()
  if(NOT B_OUTPUT_DIRECTORY)
    set(B_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
  endif()
  set(bundle "${B_OUTPUT_DIRECTORY}/${B_NAME}.app")
  set(resources "${bundle}/Contents/Resources")

  set(files ${B_ICON} ${B_README} ${B_RESOURCES})
  foreach(file IN LISTS files ITEMS "${B_INFO_PLIST}")
    get_filename_component(file "${file}" ABSOLUTE)
    if(NOT EXISTS "${file}" OR IS_DIRECTORY "${file}")
      message(FATAL_ERROR "quillet_add_app_bundle(${target}): no such file ${file}")
    endif()
  endforeach()

  get_filename_component(plist "${B_INFO_PLIST}" ABSOLUTE)
  configure_file("${plist}" "${bundle}/Contents/Info.plist" @ONLY)
  # An executable the Info.plist does not name would leave a bundle that
  # nothing can start: say so now rather than at install time.
  file(READ "${bundle}/Contents/Info.plist" info)
  get_target_property(output ${target} OUTPUT_NAME)
  if(NOT output)
    set(output ${target})
  endif()
  if(NOT info MATCHES "<key>CFBundleExecutable</key>[ \t\r\n]*<string>${output}</string>")
    message(FATAL_ERROR
      "quillet_add_app_bundle(${target}): ${B_INFO_PLIST} must name CFBundleExecutable ${output}")
  endif()
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${bundle}/Contents/Linux"
    QUILLET_BUNDLE_PATH "${bundle}")

  set(copied)
  foreach(file IN LISTS files)
    get_filename_component(file "${file}" ABSOLUTE)
    get_filename_component(name "${file}" NAME)
    add_custom_command(OUTPUT "${resources}/${name}"
      COMMAND ${CMAKE_COMMAND} -E copy_if_different "${file}" "${resources}/${name}"
      DEPENDS "${file}" VERBATIM)
    list(APPEND copied "${resources}/${name}")
  endforeach()

  set(carry)
  set(carry_depends)
  if(B_CARRY_INSTALLER)
    if(TARGET QuilletInstallerBundle)
      set(carry_depends QuilletInstallerBundle)
    elseif(NOT QUILLET_INSTALLER_BUNDLE OR NOT EXISTS "${QUILLET_INSTALLER_BUNDLE}/Contents/Info.plist")
      message(FATAL_ERROR "quillet_add_app_bundle(${target}): CARRY_INSTALLER, but no installer "
        "bundle at '${QUILLET_INSTALLER_BUNDLE}' (install the package quillet-installer)")
    endif()
    # Removed first, so that nothing of an older installer stays behind.
    set(carry
      COMMAND ${CMAKE_COMMAND} -E rm -rf "${resources}/QuilletInstaller.app"
      COMMAND ${CMAKE_COMMAND} -E copy_directory "${QUILLET_INSTALLER_BUNDLE}"
              "${resources}/QuilletInstaller.app")
  endif()
  add_custom_target(${target}_bundle ALL ${carry}
    DEPENDS ${copied} ${target} ${carry_depends}
    COMMENT "Laying out ${B_NAME}.app" VERBATIM)
endfunction()
