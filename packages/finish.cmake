# Gives the installed files the form that Debian wants, before cpack makes packages of them.

# dpkg-shlibdeps looks for the libraries of this processor, not of the one that it runs on.
set(ENV{DEB_HOST_ARCH} ${CPACK_DEBIAN_PACKAGE_ARCHITECTURE})

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
