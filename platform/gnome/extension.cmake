# Plenavue's GNOME Shell extension, in the two forms the shells load: scripts
# with init() for GNOME Shell 43 and 44 ("legacy") and ES modules for 45 and
# later ("module"), both from one core.js. The allowed executables (JSON array
# text, generator expressions allowed) go into metadata.json: the extension
# serves only callers whose /proc/PID/exe is one of them.
set(PV_GNOME_EXTENSION_UUID plenavue-shell@veltrano.com)
set(PV_GNOME_EXTENSION_VERSION 1)
set(PV_GNOME_EXTENSION_SOURCE ${CMAKE_CURRENT_LIST_DIR}/extension)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
  ${PV_GNOME_EXTENSION_SOURCE}/core.js ${PV_GNOME_EXTENSION_SOURCE}/metadata.json.in
  ${PV_GNOME_EXTENSION_SOURCE}/extension-legacy.js ${PV_GNOME_EXTENSION_SOURCE}/extension-module.js)

function(pv_gnome_extension out flavour allowed)
  if(flavour STREQUAL "legacy")
    set(versions "[\"43\", \"44\"]")
    set(export "")
  else()
    set(versions "[\"45\", \"46\", \"47\", \"48\"]")
    set(export "\nexport {createService};\n")
  endif()
  file(READ ${PV_GNOME_EXTENSION_SOURCE}/metadata.json.in metadata)
  string(REPLACE "@UUID@" "${PV_GNOME_EXTENSION_UUID}" metadata "${metadata}")
  string(REPLACE "@SHELL_VERSIONS@" "${versions}" metadata "${metadata}")
  string(REPLACE "@VERSION@" "${PV_GNOME_EXTENSION_VERSION}" metadata "${metadata}")
  string(REPLACE "@ALLOWED@" "${allowed}" metadata "${metadata}")
  file(READ ${PV_GNOME_EXTENSION_SOURCE}/core.js core)
  file(GENERATE OUTPUT ${out}/metadata.json CONTENT "${metadata}")
  file(WRITE ${out}/core.js "${core}${export}")
  configure_file(${PV_GNOME_EXTENSION_SOURCE}/extension-${flavour}.js ${out}/extension.js COPYONLY)
endfunction()

# The form this machine's GNOME Shell loads: legacy before 45, else module.
function(pv_gnome_shell_flavour var)
  set(flavour module)
  execute_process(COMMAND gnome-shell --version OUTPUT_VARIABLE shell ERROR_QUIET)
  if(shell MATCHES "GNOME Shell ([0-9]+)" AND CMAKE_MATCH_1 LESS 45)
    set(flavour legacy)
  endif()
  set(${var} ${flavour} PARENT_SCOPE)
endfunction()

# What the install puts into the system extensions folder: the form this
# machine's GNOME Shell loads (PLENAVUE_GNOME_SHELL_FLAVOUR: auto, legacy or
# module), naming the installed program by its absolute path.
set(PLENAVUE_GNOME_SHELL_FLAVOUR auto CACHE STRING "GNOME Shell extension form: auto, legacy (43-44) or module (45+)")
foreach(flavour legacy module)
  pv_gnome_extension(${CMAKE_BINARY_DIR}/install-files/gnome/${flavour} ${flavour} "[\"@PV_INSTALLED_BINARY@\"]")
endforeach()
install(CODE "
  set(flavour \"${PLENAVUE_GNOME_SHELL_FLAVOUR}\")
  if(flavour STREQUAL \"auto\")
    set(flavour module)
    execute_process(COMMAND gnome-shell --version OUTPUT_VARIABLE shell ERROR_QUIET)
    if(shell MATCHES \"GNOME Shell ([0-9]+)\" AND CMAKE_MATCH_1 LESS 45)
      set(flavour legacy)
    endif()
  endif()
  set(from \"${CMAKE_BINARY_DIR}/install-files/gnome/\${flavour}\")
  set(PV_INSTALLED_BINARY \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/plenavue\")
  configure_file(\"\${from}/metadata.json\" \"\${from}-installed/metadata.json\" @ONLY)
  set(to \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/gnome-shell/extensions/${PV_GNOME_EXTENSION_UUID}\")
  file(INSTALL DESTINATION \"\${to}\" TYPE FILE FILES \"\${from}/core.js\" \"\${from}/extension.js\"
       \"\${from}-installed/metadata.json\")
")
