# What `cmake --install` puts where: the library with its headers for a device's firmware, and the tools.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS qdt_util qdt_util_static EXPORT qdt_util
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/qdt include/platform DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
        FILES_MATCHING PATTERN "*.h")

# pkg-config, for whoever builds with make or meson. The paths follow the file when the tree is moved.
file(RELATIVE_PATH QDT_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" QDT_PC_PREFIX "${QDT_PC_PREFIX}")
configure_file(cmake/qdt_util.pc.in qdt_util.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qdt_util.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# find_package(qdt_util): qdt_util::qdt_util and qdt_util::qdt_util_static.
set(QDT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/qdt_util)
configure_package_config_file(cmake/qdt_utilConfig.cmake.in qdt_utilConfig.cmake INSTALL_DESTINATION ${QDT_CMAKE_DIR})
write_basic_package_version_file(qdt_utilConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT qdt_util NAMESPACE qdt_util:: FILE qdt_utilTargets.cmake DESTINATION ${QDT_CMAKE_DIR}
        COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/qdt_utilConfig.cmake ${PROJECT_BINARY_DIR}/qdt_utilConfigVersion.cmake
        DESTINATION ${QDT_CMAKE_DIR} COMPONENT development)

foreach(tool nqecli nqecli-agent nqecli-shell nqecli-sql nqed nqeweb)
  if(TARGET ${tool})
    install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  endif()
endforeach()
# Manual pages, each with what it is about.
function(qdt_install_manuals component)
  foreach(page ${ARGN})
    string(REGEX REPLACE ".*\\." "" section ${page})
    install(FILES man/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endforeach()
endfunction()
qdt_install_manuals(development libqdt_util.3)
if(TARGET nqecli)
  qdt_install_manuals(tools nqecli.1)
  install(FILES tools/nqecli/nqecli.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME nqecli
          COMPONENT tools)
  install(FILES tools/nqecli/_nqecli DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT tools)
endif()
if(TARGET nqed)
  qdt_install_manuals(tools nqed.8 nqe-scenario.5 nqe-layout.5)
  install(FILES examples/campus.yaml DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT tools)
  install(DIRECTORY examples/campus DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT tools)
endif()
if(TARGET nqeweb)
  qdt_install_manuals(tools nqeweb.8 nqe-metrics.5)
  install(DIRECTORY deploy/prometheus DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tools)
endif()
if(TARGET nqe_sql)
  install(TARGETS nqe_sql LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tools)
endif()
if(TARGET omad)
  qdt_install_manuals(agent omad.8 omad-session.8)
  install(TARGETS omad omad-session RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT agent)
  # Rules that everybody may read tell whom to attack.
  install(DIRECTORY deploy/nacm DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/omad COMPONENT agent FILES_MATCHING PATTERN "*.xml"
          PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ)
  install(DIRECTORY yang/ DESTINATION ${CMAKE_INSTALL_DATADIR}/yang/modules/qdt COMPONENT agent FILES_MATCHING
          PATTERN "*.yang")
endif()
