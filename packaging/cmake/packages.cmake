# Debian packages, made by scripts/packages, one for each component of install.cmake:
#
#   runtime  fcgiserver        the libraries, the daemon and its systemd units
#   dev      fcgiserver-dev    for the development of plug-ins and hosts
#   phone    fcgiserver-phone  the phone's pages
#
# packaging/debian/finish.cmake adds the files that are in the packages only.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
set(packages ${PROJECT_SOURCE_DIR}/packaging/debian)

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL runtime dev phone)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_SET_DESTDIR ON) # the phone's pages are at the root of the file tree
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${packages}/finish.cmake)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "fcgiServer's maintainers <maintainers@fcgiserver.invalid>" CACHE STRING
    "Who makes the packages: NAME <ADDRESS>")

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Derives Debian's name of the architecture from the compiler's.
if(NOT CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
    execute_process(
        COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -q DEB_HOST_ARCH
        OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
        OUTPUT_STRIP_TRAILING_WHITESPACE
        ERROR_QUIET)
endif()

set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/fcgiServer)
foreach(root ${CMAKE_FIND_ROOT_PATH})
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
        ${root}/lib ${root}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
endforeach()
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME fcgiserver)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION httpd)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS fcgiserver-phone)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${packages}/fcgiserver/postinst
    ${packages}/fcgiserver/prerm
    ${packages}/fcgiserver/postrm
    ${packages}/fcgiserver/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
"servlet container for the web interface of a device
fcgi_host answers the requests that a web server hands it over FastCGI by the
pages of the plug-in library that /phone/www/WEB-INFO/servlet/servlet.xml
names.

This package has the daemon, its systemd units and the libraries behind it.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME fcgiserver-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libfcgi-dev, libpugixml-dev, nlohmann-json3-dev")
# Needed to build, test and serve the projects of servlet_new.
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS "cmake, g++, libgtest-dev, lighttpd, pkg-config, python3")
set(CPACK_DEBIAN_DEV_DESCRIPTION
"servlet container for the web interface of a device (development)
What plug-ins of fcgi_host, their tests and other hosts are built with:
headers, the kit, the test kit, the static library, and packages for CMake
and pkg-config; and the tools that make a plug-in project, serve it, and
tell what of it would fail on a device.")

set(CPACK_DEBIAN_PHONE_PACKAGE_NAME fcgiserver-phone)
set(CPACK_DEBIAN_PHONE_PACKAGE_SECTION httpd)
# Its plug-in works with every later container of the same major version.
math(EXPR next_major "${PROJECT_VERSION_MAJOR} + 1")
set(CPACK_DEBIAN_PHONE_PACKAGE_DEPENDS
    "fcgiserver (>= ${PROJECT_VERSION}), fcgiserver (<< ${next_major}~)")
set(CPACK_DEBIAN_PHONE_PACKAGE_SUGGESTS "lighttpd, lighttpd-mod-deflate")
set(CPACK_DEBIAN_PHONE_PACKAGE_CONTROL_EXTRA
    ${packages}/fcgiserver-phone/postinst
    ${packages}/fcgiserver-phone/prerm
    ${packages}/fcgiserver-phone/postrm
    ${packages}/fcgiserver-phone/conffiles)
set(CPACK_DEBIAN_PHONE_DESCRIPTION
"web interface of a desk telephone
The telephone's pages for fcgi_host, below /phone, and the configuration of
lighttpd for them: \"lighty-enable-mod fcgiserver-phone\" puts it to use.")

set(CPACK_PROJECT_SOURCES ${PROJECT_SOURCE_DIR})
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(packaging/debian/changelog.in changelog.Debian @ONLY)
set(CPACK_DEBIAN_CHANGELOG ${PROJECT_BINARY_DIR}/changelog.Debian)

include(CPack)
