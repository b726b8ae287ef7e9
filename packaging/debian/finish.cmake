# Gives the installed files the form that Debian wants, before cpack makes packages of them.

# The package system does not know the libraries of another processor. dpkg-shlibdeps is to look for
# that one's, and to take them for parts of the packages that they are in for this machine's.
execute_process(COMMAND dpkg --print-architecture
    OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT machine STREQUAL CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
    set(ENV{DEB_HOST_ARCH} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})
    file(GLOB known /var/lib/dpkg/info/*:${machine}.shlibs)
    foreach(component runtime phone)
        file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/${component}/debian)
        # The loader, which is libc6's, has another name for each processor.
        execute_process(
            COMMAND sed
                "/^ld-linux-/{p; s/^[^ ]* [^ ]*/ld-linux-armhf 3/p; s/^[^ ]* [^ ]*/ld-linux-aarch64 1/}"
                ${known}
            OUTPUT_FILE ${CPACK_TEMPORARY_DIRECTORY}/${component}/debian/shlibs.local
            COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
endif()

# No names or times of the build in the compressed files.
file(GLOB texts
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*/*
    ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/doc/*/changelog*)
execute_process(COMMAND gzip --best --no-name ${texts} COMMAND_ERROR_IS_FATAL ANY)

# What an administrator edits is below /etc; the library finds it where it always looks.
set(phone ${CPACK_TEMPORARY_DIRECTORY}/phone)
set(servlet_xml phone/www/WEB-INFO/servlet/servlet.xml)
file(MAKE_DIRECTORY ${phone}/etc/fcgiserver)
file(RENAME ${phone}/${servlet_xml} ${phone}/etc/fcgiserver/servlet.xml)
file(CREATE_LINK /etc/fcgiserver/servlet.xml ${phone}/${servlet_xml} SYMBOLIC)
