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

# --no-name: compressed files must not depend on the time of the build.
file(GLOB texts
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*/*
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog*)
execute_process(COMMAND gzip --best --no-name ${texts} COMMAND_ERROR_IS_FATAL ANY)

# Configuration files belong into /etc; the library finds this one through a link.
set(phone ${CPACK_TEMPORARY_DIRECTORY}/phone)
set(servlet_xml phone/www/WEB-INFO/servlet/servlet.xml)
file(MAKE_DIRECTORY ${phone}/etc/fcgiserver)
file(RENAME ${phone}/${servlet_xml} ${phone}/etc/fcgiserver/servlet.xml)
file(CREATE_LINK /etc/fcgiserver/servlet.xml ${phone}/${servlet_xml} SYMBOLIC)

# An upgrade must not reset the phone: postinst creates this file at the first installation.
file(REMOVE ${phone}/phone/data/reset)
