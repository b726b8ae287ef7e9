# Adapts the installed files to Debian's policy before cpack packs them.

# dpkg-shlibdeps knows only this machine's libraries. For another processor, makes it look for that
# one's, and attributes them to the packages that contain this machine's.
execute_process(COMMAND dpkg --print-architecture
    OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT machine STREQUAL CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
    set(ENV{DEB_HOST_ARCH} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
    file(GLOB known /var/lib/dpkg/info/*:${machine}.shlibs)
    foreach(component runtime phone)
        file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/${component}/debian)
        # The name of the dynamic linker, which libc6 contains, depends on the processor.
        execute_process(
            COMMAND sed
                "/^ld-linux-/{p; s/^[^ ]* [^ ]*/ld-linux-armhf 3/p; s/^[^ ]* [^ ]*/ld-linux-aarch64 1/}"
                ${known}
            OUTPUT_FILE ${CPACK_TEMPORARY_DIRECTORY}/${component}/debian/shlibs.local
            COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
endif()

# add_renamed(FILE DESTINATION): the destination is a path in the tree of a package.
function(add_renamed file destination)
    cmake_path(GET destination PARENT_PATH folder)
    cmake_path(GET file FILENAME name)
    file(COPY ${file} DESTINATION ${folder} NO_SOURCE_PERMISSIONS)
    file(RENAME ${folder}/${name} ${destination})
endfunction()

# What only the packages contain, and no image that is put together with "cmake --install".
set(packaging ${CPACK_PROJECT_SOURCES}/packaging)
foreach(component ${CPACK_COMPONENTS_ALL})
    string(TOUPPER ${component} upper)
    set(name ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
    file(COPY ${packaging}/debian/copyright ${CPACK_DEBIAN_CHANGELOG} DESTINATION ${share}/doc/${name}
        NO_SOURCE_PERMISSIONS)
    add_renamed(${CPACK_PROJECT_SOURCES}/CHANGELOG.md ${share}/doc/${name}/changelog)
    add_renamed(${packaging}/debian/${name}/lintian-overrides ${share}/lintian/overrides/${name})
endforeach()
file(GLOB front_servers ${packaging}/front-servers/*.conf ${packaging}/front-servers/*.lua)
list(FILTER front_servers EXCLUDE REGEX "lighttpd-debian[.]conf$")
file(COPY ${front_servers}
    DESTINATION ${CPACK_TEMPORARY_DIRECTORY}/runtime/usr/share/doc/fcgiserver/examples
    NO_SOURCE_PERMISSIONS)
file(COPY ${CPACK_PROJECT_SOURCES}/README.md ${CPACK_PROJECT_SOURCES}/docs
    DESTINATION ${CPACK_TEMPORARY_DIRECTORY}/dev/usr/share/doc/fcgiserver-dev
    NO_SOURCE_PERMISSIONS FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.png")
set(phone ${CPACK_TEMPORARY_DIRECTORY}/phone)
file(COPY
    ${packaging}/front-servers/lighttpd-deflate.conf
    ${packaging}/front-servers/lighttpd-phone.conf
    DESTINATION ${phone}/usr/share/fcgiServer NO_SOURCE_PERMISSIONS)
add_renamed(${packaging}/front-servers/lighttpd-debian.conf
    ${phone}/etc/lighttpd/conf-available/50-fcgiserver-phone.conf)

# --no-name: compressed files must not depend on the time of the build.
file(GLOB texts
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*/*
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog*)
execute_process(COMMAND gzip --best --no-name ${texts} COMMAND_ERROR_IS_FATAL ANY)

# Configuration files belong into /etc; the library finds this one through a link.
set(servlet_xml phone/www/WEB-INFO/servlet/servlet.xml)
file(MAKE_DIRECTORY ${phone}/etc/fcgiserver)
file(RENAME ${phone}/${servlet_xml} ${phone}/etc/fcgiserver/servlet.xml)
file(CREATE_LINK /etc/fcgiserver/servlet.xml ${phone}/${servlet_xml} SYMBOLIC)

# An upgrade must not reset the phone: postinst creates this file at the first installation.
file(REMOVE ${phone}/phone/data/reset)
