# Installs the libraries, the daemon, the tools, the headers (in one folder, since they include each
# other by their bare names), the kit, the test kit, and the CMake and pkg-config packages.
#
#   dev      for the development of plug-ins and hosts
#   phone    the phone's pages; only if named explicitly
#   runtime  the rest
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)

set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/fcgiServer)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/fcgiServer)

install(TARGETS base QKSTL platform_headers device fcgiServer fcgiServer-static kit
    EXPORT fcgiServerTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
    INCLUDES DESTINATION ${header_dir})
install(TARGETS fcgi_host RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
configure_file(packaging/systemd/fcgi_host.service.in fcgi_host.service @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/fcgi_host.service packaging/systemd/fcgi_host.socket
    DESTINATION lib/systemd/system EXCLUDE_FROM_ALL)
foreach(section 5 8)
    file(GLOB pages CONFIGURE_DEPENDS packaging/man/*.${section})
    install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
endforeach()
if(TARGET servlet_check)
    install(TARGETS servlet_check RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)
    install(FILES packaging/man/servlet_check.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT dev)
endif()
foreach(tool servlet_new servlet_serve)
    install(PROGRAMS tools/${tool}/${tool} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)
    install(FILES packaging/man/${tool}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT dev)
endforeach()
install(FILES kit/plugin.map DESTINATION ${CMAKE_INSTALL_DATADIR}/fcgiServer COMPONENT dev)
# The template of servlet_new, and the parts of servlet_serve.
set(tools_dir ${CMAKE_INSTALL_DATADIR}/fcgiServer)
install(DIRECTORY tools/servlet_new/project tools/servlet_new/with DESTINATION ${tools_dir}
    COMPONENT dev PATTERN "build" EXCLUDE)
install(FILES
    packaging/front-servers/lighttpd.conf
    packaging/front-servers/lighttpd-phone.conf
    DESTINATION ${tools_dir}/config COMPONENT dev)
install(FILES
    tools/servlet_serve/development_server.py
    tools/servlet_serve/problem.css
    tools/servlet_serve/problems.py
    tools/servlet_serve/relay.py
    tools/servlet_serve/reload.js
    DESTINATION ${tools_dir}/serve COMPONENT dev)
install(PROGRAMS tools/servlet_serve/keep_daemon DESTINATION ${tools_dir}/serve COMPONENT dev)
install(DIRECTORY fcgiServer/include/ platform/include/ DESTINATION ${header_dir} COMPONENT dev
    FILES_MATCHING PATTERN "*.h")
install(DIRECTORY fcgiServer/ DESTINATION ${header_dir} COMPONENT dev
    FILES_MATCHING PATTERN "*.h" PATTERN "include" EXCLUDE
    # Internal to the container.
    REGEX "/(busy_mark|http_status|lingering_close|log_module|request_rules|session_limit|session_uses)[.]h$"
    EXCLUDE)
install(DIRECTORY base QKSTL kit/include/kit DESTINATION ${header_dir} COMPONENT dev
    FILES_MATCHING PATTERN "*.h")

# The test kit's sources are compiled into each test program.
install(TARGETS testkit testkit_without_container testkit_streams testkit_log testkit_clock
    EXPORT fcgiServerTargets
    INCLUDES DESTINATION ${header_dir})
install(DIRECTORY kit/testing/include/ DESTINATION ${header_dir} COMPONENT dev
    FILES_MATCHING PATTERN "*.h")
install(DIRECTORY kit/testing/ DESTINATION ${CMAKE_INSTALL_DATADIR}/fcgiServer/testkit COMPONENT dev
    FILES_MATCHING PATTERN "*.cpp" PATTERN "*.h" PATTERN "include" EXCLUDE)

install(EXPORT fcgiServerTargets NAMESPACE fcgiServer:: DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(packaging/cmake/fcgiServerConfig.cmake.in fcgiServerConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(fcgiServerConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/fcgiServerConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/fcgiServerConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT dev)

set(DEVICE_FLAGS -ldevice)
if(DEVICE_LIBRARIES)
    list(JOIN DEVICE_LIBRARIES " " DEVICE_FLAGS)
endif()
list(TRANSFORM WIDE_TYPES PREPEND " -D" OUTPUT_VARIABLE KIT_DEFINITIONS)
list(JOIN KIT_DEFINITIONS "" KIT_DEFINITIONS)
foreach(name fcgiServer fcgiServer-static fcgiServer-kit)
    configure_file(packaging/cmake/${name}.pc.in ${name}.pc @ONLY)
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endforeach()

if(NOT BUILD_PHONE)
    return()
endif()
# The phone's pages where the library reads them; only if named explicitly, since that is at the root
# of the file tree.
install(DIRECTORY ${PROJECT_BINARY_DIR}/device/phone DESTINATION /
    COMPONENT phone EXCLUDE_FROM_ALL
    PATTERN "lib" EXCLUDE
    PATTERN "data" EXCLUDE)
# With this file the phone starts as a new one; without it and without a password it stays closed.
file(TOUCH ${PROJECT_BINARY_DIR}/reset)
install(FILES ${PROJECT_BINARY_DIR}/reset DESTINATION /phone/data
    COMPONENT phone EXCLUDE_FROM_ALL)
install(TARGETS phone_pages LIBRARY DESTINATION /phone/www/WEB-INFO/lib
    COMPONENT phone EXCLUDE_FROM_ALL)
